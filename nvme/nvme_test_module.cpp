// The NVMe module's record: its slots, its state, its installation through
// the registry's one path for test modules, and its clean-up.
#include "core/pool_text.h"
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

EFI_STATUS CopyText(const CHAR16* Source, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(Source, Text);
}

EFIAPI EFI_STATUS GetAlgorithmName(TestModuleProtocol* This, UINT64 Index, CHAR16** Name) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr || Index >= NvmeAlgorithmCount) return EFI_ABORTED;
  return CopyText(NvmeText(*Module, nvme_text::FirstAlgorithm + Index), Name);
}

EFIAPI EFI_STATUS GetAlgorithmKey(TestModuleProtocol*, UINT64 Index, CHAR16** Key) {
  if (Index >= NvmeAlgorithmCount) return EFI_ABORTED;
  return CopyText(NvmeAlgorithmKey(Index), Key);
}

EFIAPI UINT64 GetAlgorithmCount(TestModuleProtocol*) { return NvmeAlgorithmCount; }

EFIAPI EFI_STATUS GetRunInfoRow(TestModuleProtocol* This, UINT64 Row, UINT64 Device, CHAR16** Label, CHAR16** Value) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return NvmeRunInfoRow(*Module, Row, Device, Label, Value);
}

EFIAPI UINT64 GetRunInfoRowCount(TestModuleProtocol*) { return NvmeRunInfoRows; }

EFIAPI EFI_STATUS GetModuleCode(TestModuleProtocol*, CHAR16** Code) { return CopyText(u"NV", Code); }

EFIAPI EFI_STATUS GetTestName(TestModuleProtocol* This, CHAR16** Name) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyText(NvmeText(*Module, nvme_text::TestName), Name);
}

EFIAPI EFI_STATUS GetSystemInfoRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Label, CHAR16** Value) {
  NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return NvmeSystemInfoRow(*Module, Row, Label, Value);
}

EFIAPI UINT64 GetSystemInfoRowCount(TestModuleProtocol* This) {
  const NvmeModule* Module = NvmeModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount * NvmeSystemInfoRowsPerDrive;
}

EFIAPI EFI_STATUS GetModuleName(TestModuleProtocol* This, CHAR16** Name) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyText(NvmeText(*Module, nvme_text::ModuleName), Name);
}

EFIAPI EFI_STATUS GetModuleKey(TestModuleProtocol*, CHAR16** Key) { return CopyText(u"NVME", Key); }

EFIAPI EFI_STATUS GetResultText(TestModuleProtocol* This, UINT64, CHAR16** Text) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyText(NvmeText(*Module, nvme_text::FailedToRun), Text);
}

EFIAPI UINT64 GetDeviceCount(TestModuleProtocol* This) {
  const NvmeModule* Module = NvmeModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount;
}

EFIAPI EFI_STATUS GetDeviceName(TestModuleProtocol* This, UINT64 Device, CHAR16** Name) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return NvmeDeviceName(*Module, Device, Name);
}

EFIAPI UINT64 GetLogRowCount(TestModuleProtocol* This) {
  const NvmeModule* Module = NvmeModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount * NvmeLogRowsPerDrive;
}

EFIAPI EFI_STATUS GetLogRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Key, CHAR16** Value) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return NvmeLogRow(*Module, Row, Key, Value);
}

EFIAPI EFI_STATUS TranslateKey(TestModuleProtocol* This, const CHAR16* Key, CHAR16** Text) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr || Text == nullptr) return EFI_ABORTED;
  const CHAR16* Known = NvmeKeyText(*Module, Key);
  return CopyTextToPool(Known != nullptr ? Known : Key, Text);
}

EFIAPI UINT64 GetSummaryLineCount() { return 0; }
EFIAPI EFI_STATUS GetSummaryLine(UINT64, CHAR16**) { return EFI_ABORTED; }

VOID FillOperations(TestModuleProtocol& Record) {
  Record.RunTest = NvmeRunTest;
  Record.GetAlgorithmName = GetAlgorithmName;
  Record.GetAlgorithmKey = GetAlgorithmKey;
  Record.GetAlgorithmCount = GetAlgorithmCount;
  Record.GetRunInfoRow = GetRunInfoRow;
  Record.GetRunInfoRowCount = GetRunInfoRowCount;
  Record.GetModuleCode = GetModuleCode;
  Record.GetTestName = GetTestName;
  Record.StopTest = NvmeStopTest;
  Record.GetSystemInfoRow = GetSystemInfoRow;
  Record.GetSystemInfoRowCount = GetSystemInfoRowCount;
  Record.GetModuleName = GetModuleName;
  Record.GetModuleKey = GetModuleKey;
  Record.GetResultText = GetResultText;
  Record.DeviceTable = Nvme.Drives.Devices;
  Record.GetDeviceCount = GetDeviceCount;
  Record.GetDeviceName = GetDeviceName;
  Record.GetLogRowCount = GetLogRowCount;
  Record.GetLogRow = GetLogRow;
  Record.TranslateKey = TranslateKey;
  Record.GetSummaryLineCount = GetSummaryLineCount;
  Record.GetSummaryLine = GetSummaryLine;
  Record.EvaluateResults = NvmeEvaluateResults;
}

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

const CHAR16* NvmeText(const NvmeModule& Module, UINT64 Id) {
  const TestModuleInstallation& Installation = Module.Installation;
  if (Installation.Strings == nullptr || Id >= Installation.StringCount || Installation.Strings[Id] == nullptr)
    return u"";
  return Installation.Strings[Id];
}

EFI_STATUS InstallNvmeTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*) {
  return InstallTestModule(ImageHandle, NvmeDescriptor);
}

}  // namespace tarvik
