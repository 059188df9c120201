// The NVMe module's record: its slots, its state, its installation through
// the registry's one path for test modules, and its clean-up.
#include "drives/drive_module_record.h"
#include "nvme/nvme_discovery.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_module.h"
#include "nvme/nvme_module_run.h"
#include "nvme/nvme_rows.h"
#include "nvme/nvme_test_protocol.h"
#include "registry/module_installer.h"

namespace tarvik {
namespace {

constinit NvmeModule Nvme{};

struct NvmeRecordTraits {
  using Module = NvmeModule;
  static constexpr auto Of = NvmeModuleOf;
  static constexpr auto Text = NvmeText;
  static constexpr UINT64 AlgorithmCount = NvmeAlgorithmCount;
  static constexpr UINT64 AlgorithmNameText(UINT64 Index) { return nvme_text::FirstAlgorithm + Index; }
  static constexpr auto AlgorithmKey = NvmeAlgorithmKey;
  static constexpr UINT64 RunInfoRows = NvmeRunInfoRows;
  static constexpr auto RunInfoRow = NvmeRunInfoRow;
  static constexpr auto DeviceName = NvmeDeviceName;
  static constexpr UINT64 LogRowsPerDrive = NvmeLogRowsPerDrive;
  static constexpr auto LogRow = NvmeLogRow;
  static constexpr UINT64 SystemInfoRowsPerDrive = NvmeSystemInfoRowsPerDrive;
  static constexpr auto SystemInfoRow = NvmeSystemInfoRow;
  static constexpr auto KeyText = NvmeKeyText;
  static constexpr UINT64 TestNameText = nvme_text::TestName;
  static constexpr UINT64 ModuleNameText = nvme_text::ModuleName;
  static constexpr UINT64 FailedToRunText = nvme_text::FailedToRun;
  static constexpr const CHAR16* Code = u"NV";
  static constexpr const CHAR16* Key = u"NVME";
  static constexpr auto RunTest = NvmeRunTest;
  static constexpr auto StopTest = NvmeStopTest;
  static constexpr auto EvaluateResults = NvmeEvaluateResults;
};

VOID FillOperations(TestModuleProtocol& Record) { DriveModuleRecord<NvmeRecordTraits>::Fill(Record, Nvme.Drives.Devices); }

EFI_STATUS FindNamespaces() {
  Nvme.Run = DriveRun{};
  return DiscoverNvmeDevices(&Nvme.Drives);
}

VOID ReleaseNamespaces() { ReleaseNvmeDevices(&Nvme.Drives); }

EFIAPI EFI_STATUS Unload(EFI_HANDLE) {
  const EFI_STATUS Status = ReleaseTestModule(Nvme.Installation);
  ReleaseNamespaces();
  Nvme.Run = DriveRun{};
  return Status;
}

constexpr TestModuleDescriptor NvmeDescriptor = {
    .Guid = NvmeTestProtocolGuid,
    .Installation = &Nvme.Installation,
    .Unload = Unload,
    .FillOperations = FillOperations,
    .StringTableName = u"NVMe",
    .AddTestFailureFormat = u"Fail in Test Collection during NVMe Test Protocol installation : %r\n",
    .InstallFailureFormat = u"Fail during NVMe Test Protocol installation in Image Handle: %r\n",
    .Prepare = FindNamespaces,
    .ReleasePrepared = ReleaseNamespaces,
};

}  // namespace

NvmeModule* NvmeModuleOf(const TestModuleProtocol* This) {
  if (This == nullptr || This != Nvme.Installation.Record) return nullptr;
  return &Nvme;
}

const CHAR16* NvmeText(const NvmeModule& Module, UINT64 Id) { return InstalledText(Module.Installation, Id); }

EFI_STATUS InstallNvmeTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*) {
  return InstallTestModule(ImageHandle, NvmeDescriptor);
}

}  // namespace tarvik
