// The storage module's record: its slots, its state, its installation
// through the registry's one path for test modules, and its clean-up.
#include "core/pool_text.h"
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

EFI_STATUS CopyStorageText(const StorageModule& Module, UINT64 Id, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(StorageText(Module, Id), Text);
}

EFI_STATUS CopyFixedText(const CHAR16* Source, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(Source, Text);
}

EFIAPI EFI_STATUS GetAlgorithmName(TestModuleProtocol* This, UINT64 Index, CHAR16** Name) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr || Index >= ListedStorageAlgorithms) return EFI_ABORTED;
  return CopyStorageText(*Module, StorageAlgorithmNameText(Index), Name);
}

EFIAPI EFI_STATUS GetAlgorithmKey(TestModuleProtocol*, UINT64 Index, CHAR16** Key) {
  if (Index >= ListedStorageAlgorithms) return EFI_ABORTED;
  return CopyFixedText(StorageAlgorithmKey(Index), Key);
}

EFIAPI UINT64 GetAlgorithmCount(TestModuleProtocol*) { return ListedStorageAlgorithms; }

EFIAPI EFI_STATUS GetRunInfoRow(TestModuleProtocol* This, UINT64 Row, UINT64 Device, CHAR16** Label,
                                CHAR16** Value) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return StorageRunInfoRow(*Module, Row, Device, Label, Value);
}

EFIAPI UINT64 GetRunInfoRowCount(TestModuleProtocol*) { return StorageRunInfoRows; }

EFIAPI EFI_STATUS GetModuleCode(TestModuleProtocol*, CHAR16** Code) { return CopyFixedText(u"HD", Code); }

EFIAPI EFI_STATUS GetTestName(TestModuleProtocol* This, CHAR16** Name) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyStorageText(*Module, storage_text::TestName, Name);
}

EFIAPI EFI_STATUS GetSystemInfoRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Label, CHAR16** Value) {
  StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return StorageSystemInfoRow(*Module, Row, Label, Value);
}

EFIAPI UINT64 GetSystemInfoRowCount(TestModuleProtocol* This) {
  const StorageModule* Module = StorageModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount * SystemInfoRowsPerDrive;
}

EFIAPI EFI_STATUS GetModuleName(TestModuleProtocol* This, CHAR16** Name) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyStorageText(*Module, storage_text::ModuleName, Name);
}

EFIAPI EFI_STATUS GetModuleKey(TestModuleProtocol*, CHAR16** Key) { return CopyFixedText(u"STORAGE", Key); }

// One text for every code: the module has no codes of its own.
EFIAPI EFI_STATUS GetResultText(TestModuleProtocol* This, UINT64, CHAR16** Text) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return CopyStorageText(*Module, storage_text::FailedToRun, Text);
}

EFIAPI UINT64 GetDeviceCount(TestModuleProtocol* This) {
  const StorageModule* Module = StorageModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount;
}

EFIAPI EFI_STATUS GetDeviceName(TestModuleProtocol* This, UINT64 Device, CHAR16** Name) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return StorageDeviceName(*Module, Device, Name);
}

EFIAPI UINT64 GetLogRowCount(TestModuleProtocol* This) {
  const StorageModule* Module = StorageModuleOf(This);
  return Module == nullptr ? 0 : Module->Drives.DeviceCount * LogRowsPerDrive;
}

EFIAPI EFI_STATUS GetLogRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Key, CHAR16** Value) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_ABORTED;
  return StorageLogRow(*Module, Row, Key, Value);
}

EFIAPI EFI_STATUS TranslateKey(TestModuleProtocol* This, const CHAR16* Key, CHAR16** Text) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr || Text == nullptr) return EFI_ABORTED;
  const CHAR16* Known = StorageKeyText(*Module, Key);
  return CopyTextToPool(Known != nullptr ? Known : Key, Text);
}

EFIAPI UINT64 GetSummaryLineCount() { return 0; }
EFIAPI EFI_STATUS GetSummaryLine(UINT64, CHAR16**) { return EFI_ABORTED; }

VOID FillOperations(TestModuleProtocol& Record) {
  Record.RunTest = StorageRunTest;
  Record.GetAlgorithmName = GetAlgorithmName;
  Record.GetAlgorithmKey = GetAlgorithmKey;
  Record.GetAlgorithmCount = GetAlgorithmCount;
  Record.GetRunInfoRow = GetRunInfoRow;
  Record.GetRunInfoRowCount = GetRunInfoRowCount;
  Record.GetModuleCode = GetModuleCode;
  Record.GetTestName = GetTestName;
  Record.StopTest = StorageStopTest;
  Record.GetSystemInfoRow = GetSystemInfoRow;
  Record.GetSystemInfoRowCount = GetSystemInfoRowCount;
  Record.GetModuleName = GetModuleName;
  Record.GetModuleKey = GetModuleKey;
  Record.GetResultText = GetResultText;
  Record.DeviceTable = Storage.Drives.Devices;
  Record.GetDeviceCount = GetDeviceCount;
  Record.GetDeviceName = GetDeviceName;
  Record.GetLogRowCount = GetLogRowCount;
  Record.GetLogRow = GetLogRow;
  Record.TranslateKey = TranslateKey;
  Record.GetSummaryLineCount = GetSummaryLineCount;
  Record.GetSummaryLine = GetSummaryLine;
  Record.EvaluateResults = StorageEvaluateResults;
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

const CHAR16* StorageText(const StorageModule& Module, UINT64 Id) {
  const TestModuleInstallation& Installation = Module.Installation;
  if (Installation.Strings == nullptr || Id >= Installation.StringCount || Installation.Strings[Id] == nullptr)
    return u"";
  return Installation.Strings[Id];
}

EFI_STATUS InstallStorageTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*, RotatingDriveToolPublisher PublishTool) {
  Storage.PublishTool = PublishTool;
  return InstallTestModule(ImageHandle, StorageDescriptor);
}

}  // namespace tarvik
