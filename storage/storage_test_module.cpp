// The storage module's record: its slots, its state, its installation
// through the registry's one path for test modules, and its clean-up.
#include "drives/drive_module_record.h"
#include "registry/module_installer.h"
#include "storage/drive_discovery.h"
#include "storage/storage_keys.h"
#include "storage/storage_module.h"
#include "storage/storage_module_run.h"
#include "storage/storage_rows.h"
#include "storage/storage_test_protocol.h"

namespace tarvik {
namespace {

// The module's one state record, from installation to unload. The drives
// record must not move while drives point into it, so it lives here rather
// than in a pool buffer that could be reallocated.
constinit StorageModule Storage{};

struct StorageRecordTraits {
  using Module = StorageModule;
  static constexpr auto Of = StorageModuleOf;
  static constexpr auto Text = StorageText;
  static constexpr UINT64 AlgorithmCount = ListedStorageAlgorithms;
  static constexpr auto AlgorithmNameText = StorageAlgorithmNameText;
  static constexpr auto AlgorithmKey = StorageAlgorithmKey;
  static constexpr UINT64 RunInfoRows = StorageRunInfoRows;
  static constexpr auto RunInfoRow = StorageRunInfoRow;
  static constexpr auto DeviceName = StorageDeviceName;
  static constexpr UINT64 LogRowsPerDrive = tarvik::LogRowsPerDrive;
  static constexpr auto LogRow = StorageLogRow;
  static constexpr UINT64 SystemInfoRowsPerDrive = tarvik::SystemInfoRowsPerDrive;
  static constexpr auto SystemInfoRow = StorageSystemInfoRow;
  static constexpr auto KeyText = StorageKeyText;
  static constexpr UINT64 TestNameText = storage_text::TestName;
  static constexpr UINT64 ModuleNameText = storage_text::ModuleName;
  static constexpr UINT64 FailedToRunText = storage_text::FailedToRun;
  static constexpr const CHAR16* Code = u"HD";
  static constexpr const CHAR16* Key = u"STORAGE";
  static constexpr auto RunTest = StorageRunTest;
  static constexpr auto StopTest = StorageStopTest;
  static constexpr auto EvaluateResults = StorageEvaluateResults;
};

VOID FillOperations(TestModuleProtocol& Record) {
  DriveModuleRecord<StorageRecordTraits>::Fill(Record, Storage.Drives.Devices);
}

// Before the record exists: every drive of every pass-through, identified.
// Discovery prints why it found none; either step releases what it took.
EFI_STATUS FindDrives() {
  Storage.Drives = StorageDrives{};
  Storage.Run = StorageRun{};
  const EFI_STATUS Status = DiscoverStorageDevices(&Storage.Drives);
  if (EFI_ERROR(Status)) return Status;
  if (EFI_ERROR(IdentifyAllDevices(&Storage.Drives))) {
    ReleaseStorageDevices(&Storage.Drives);
    return EFI_ABORTED;
  }
  return EFI_SUCCESS;
}

VOID ReleaseDrives() { ReleaseStorageDevices(&Storage.Drives); }

EFIAPI EFI_STATUS Unload(EFI_HANDLE) {
  const EFI_STATUS Status = ReleaseTestModule(Storage.Installation);
  ReleaseDrives();
  Storage.Run = StorageRun{};
  return Status;
}

// The bad-sector tool, published beside the module when a rotating drive
// exists. Without memory for the rotating drives' list the module stays
// alone; a tool that cannot be installed takes the module down with it.
EFI_STATUS PublishTool(EFI_HANDLE ImageHandle, BOOLEAN* Withdraw) {
  *Withdraw = FALSE;
  EFI_STATUS Status = BuildToolDeviceList(&Storage.Drives);
  if (EFI_ERROR(Status)) {
    gDiagCommon->Print(u"Error in allocate buffer to non Ata Devices\n");
    return Status;
  }
  if (Storage.PublishTool == nullptr) return EFI_SUCCESS;
  Status = Storage.PublishTool(ImageHandle, Storage.Drives, Storage.Installation.Strings,
                               Storage.Installation.StringCount);
  *Withdraw = EFI_ERROR(Status);
  return Status;
}

constexpr TestModuleDescriptor StorageDescriptor = {
    .Guid = StorageTestProtocolGuid,
    .Installation = &Storage.Installation,
    .Unload = Unload,
    .FillOperations = FillOperations,
    .StringTableName = u"Storage",
    .AddTestFailureFormat = u"Fail in Test Collection during Storage Test Protocol installation : %r\n",
    .InstallFailureFormat = u"Fail during Storage Test Protocol installation in Image Handle: %r\n",
    .Prepare = FindDrives,
    .ReleasePrepared = ReleaseDrives,
    .PublishCompanion = PublishTool,
};

}  // namespace

StorageModule* StorageModuleOf(const TestModuleProtocol* This) {
  if (This == nullptr || This != Storage.Installation.Record) return nullptr;
  return &Storage;
}

const CHAR16* StorageText(const StorageModule& Module, UINT64 Id) { return InstalledText(Module.Installation, Id); }

EFI_STATUS InstallStorageTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*, RotatingDriveToolPublisher PublishTool) {
  Storage.PublishTool = PublishTool;
  return InstallTestModule(ImageHandle, StorageDescriptor);
}

}  // namespace tarvik
