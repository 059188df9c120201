#include "tests/qemu/log_writer/fixed_run_module.h"

#include "core/globals.h"
#include "core/pool_text.h"
#include "registry/module_installer.h"

namespace logwriter {
namespace {

using tarvik::CopyTextToPool;
using tarvik::TestModuleProtocol;

struct Row {
  const CHAR16* Key;
  const CHAR16* Value;
};

constexpr Row LogRows[] = {
    {u"UID:", u"QEMU-DIMM-0"},         {u"DISPLAYNAME:", u"MAIN_MEMORY"}, {u"PHYSICAL_MEMORY:", u"0 GB"},
    {u">>> RESOURCE BANK", u" "},      {u"INDEX:", u"0"},                {u"MANUFACTURER:", u"QEMU"},
    {u"SPEED:", u"0"},                 {u"SIZE:", u"0 GB"},              {u"PART_NUMBER:", u"-"},
    {u"SERIAL_NUMBER:", u"QEMU-DIMM-0"}, {u"<<< RESOURCE", u" "},
};
constexpr UINT64 LogRowCount = sizeof(LogRows) / sizeof(LogRows[0]);

constinit tarvik::TestModuleInstallation Installation = {};

EFIAPI UINT64 RunTest(TestModuleProtocol*, UINT64, UINT8, tarvik::TEST_PROGRESS_CALLBACK,
                      tarvik::TEST_MESSAGE_CALLBACK) {
  return tarvik::TEST_RESULT_PASSED;
}
EFIAPI EFI_STATUS AlgorithmName(TestModuleProtocol*, UINT64 Index, CHAR16** Text) {
  return Index == 0 && Text != nullptr ? CopyTextToPool(u"Advanced Integrity Test", Text) : EFI_ABORTED;
}
EFIAPI EFI_STATUS AlgorithmKey(TestModuleProtocol*, UINT64 Index, CHAR16** Text) {
  return Index == 0 && Text != nullptr ? CopyTextToPool(u"ADVANCED_INTEGRITY", Text) : EFI_ABORTED;
}
EFIAPI UINT64 One(TestModuleProtocol*) { return 1; }
EFIAPI UINT64 Zero(TestModuleProtocol*) { return 0; }
EFIAPI EFI_STATUS ModuleCode(TestModuleProtocol*, CHAR16** Text) { return CopyTextToPool(u"ME", Text); }
EFIAPI EFI_STATUS TestName(TestModuleProtocol*, CHAR16** Text) { return CopyTextToPool(u"Quick Memory Test", Text); }
EFIAPI EFI_STATUS ModuleName(TestModuleProtocol*, CHAR16** Text) { return CopyTextToPool(u"Memory", Text); }
EFIAPI EFI_STATUS ModuleKey(TestModuleProtocol*, CHAR16** Text) { return CopyTextToPool(u"MEMORY", Text); }
EFIAPI UINT64 RowCount(TestModuleProtocol*) { return LogRowCount; }
EFIAPI EFI_STATUS LogRow(TestModuleProtocol*, UINT64 Index, CHAR16** Key, CHAR16** Value) {
  if (Key == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Index >= LogRowCount) return EFI_INVALID_PARAMETER;
  EFI_STATUS Status = CopyTextToPool(LogRows[Index].Key, Key);
  if (EFI_ERROR(Status)) return Status;
  Status = CopyTextToPool(LogRows[Index].Value, Value);
  if (EFI_ERROR(Status)) tarvik::gBS->FreePool(*Key);
  return Status;
}

EFIAPI EFI_STATUS Unload(EFI_HANDLE) { return tarvik::ReleaseTestModule(Installation); }

VOID FillOperations(TestModuleProtocol& Record) {
  Record.RunTest = RunTest;
  Record.GetAlgorithmName = AlgorithmName;
  Record.GetAlgorithmKey = AlgorithmKey;
  Record.GetAlgorithmCount = One;
  Record.GetRunInfoRowCount = Zero;
  Record.GetModuleCode = ModuleCode;
  Record.GetTestName = TestName;
  Record.GetSystemInfoRowCount = Zero;
  Record.GetModuleName = ModuleName;
  Record.GetModuleKey = ModuleKey;
  Record.GetDeviceCount = One;
  Record.GetLogRowCount = RowCount;
  Record.GetLogRow = LogRow;
}

}  // namespace

EFI_STATUS InstallFixedRunModule(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*) {
  const tarvik::TestModuleDescriptor Module = {
      .Guid = EFI_GUID{0x7E570A11, 0x106F, 0x4E57, {0x90, 0x0D, 0x10, 0x67, 0x57, 0x41, 0x56, 0x45}},
      .Installation = &Installation,
      .Unload = Unload,
      .FillOperations = FillOperations,
      .StringTableName = nullptr,
      .AddTestFailureFormat = u"LOG WRITER: the registry refused the module: %r\n",
      .InstallFailureFormat = u"LOG WRITER: the module was not installed: %r\n",
  };
  return tarvik::InstallTestModule(ImageHandle, Module);
}

}  // namespace logwriter
