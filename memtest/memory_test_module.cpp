// The memory module: its state, its record's slots, its descriptor and its
// clean-up. A new test module starts from this file.
#include "core/pool_text.h"
#include "memtest/advanced_integrity.h"
#include "memtest/installed_memory.h"
#include "memtest/memory_modules.h"
#include "memtest/memory_rows.h"
#include "memtest/memory_test_protocol.h"
#include "memtest/memory_test_state.h"
#include "memtest/memory_texts.h"
#include "registry/module_installer.h"

namespace tarvik {

constinit MemoryTestState MemoryTest = {
    .Installation = {},
    .KeepRunning = 1,
    .TotalPages = 0,
    .AvailablePages = 0,
    .Modules = {},
};

namespace {

constexpr CHAR16 AlgorithmKey[] = u"ADVANCED_INTEGRITY";

EFI_STATUS CopyMemoryText(UINT64 Id, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(MemoryText(Id), Text);
}

EFIAPI UINT64 RunTest(TestModuleProtocol* This, UINT64 Algorithm, UINT8, TEST_PROGRESS_CALLBACK Progress,
                      TEST_MESSAGE_CALLBACK Message) {
  if (Algorithm != 0) return EFI_INVALID_PARAMETER;
  return CheckInstalledMemory(MemoryTest.Modules, This, Message,
                              RunAdvancedIntegrityTest(MemoryTest, This, Progress, Message));
}

EFIAPI EFI_STATUS GetAlgorithmName(TestModuleProtocol*, UINT64 Index, CHAR16** Name) {
  if (Name == nullptr || Index != 0) return EFI_ABORTED;
  return CopyMemoryText(memory_text::AlgorithmName, Name);
}

EFIAPI EFI_STATUS GetAlgorithmKey(TestModuleProtocol*, UINT64 Index, CHAR16** Key) {
  if (Key == nullptr || Index != 0) return EFI_ABORTED;
  return CopyTextToPool(AlgorithmKey, Key);
}

EFIAPI UINT64 One(TestModuleProtocol*) { return 1; }
EFIAPI UINT64 RunInfoRowCount(TestModuleProtocol*) { return MemoryRunInfoRows; }

EFIAPI EFI_STATUS GetRunInfoRow(TestModuleProtocol*, UINT64 Row, UINT64 Device, CHAR16** Label, CHAR16** Value) {
  return MemoryRunInfoRow(Row, Device, Label, Value);
}

EFIAPI EFI_STATUS GetModuleCode(TestModuleProtocol*, CHAR16** Code) {
  if (Code == nullptr) return EFI_ABORTED;
  return CopyTextToPool(u"ME", Code);
}

EFIAPI EFI_STATUS GetTestName(TestModuleProtocol*, CHAR16** Name) { return CopyMemoryText(memory_text::TestName, Name); }

// Runs from the run screen's key poll: the run notices within one stretch
// of pairs, and hands it on to every processor.
EFIAPI EFI_STATUS StopTest(TestModuleProtocol*) {
  MemoryTest.KeepRunning = 0;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS GetSystemInfoRow(TestModuleProtocol*, UINT64 Row, CHAR16** Label, CHAR16** Value) {
  return MemorySystemInfoRow(Row, Label, Value);
}

EFIAPI UINT64 SystemInfoRowCount(TestModuleProtocol*) { return MemorySystemInfoRowCount(); }

EFIAPI EFI_STATUS GetModuleName(TestModuleProtocol*, CHAR16** Name) {
  return CopyMemoryText(memory_text::ModuleName, Name);
}

EFIAPI EFI_STATUS GetModuleKey(TestModuleProtocol*, CHAR16** Key) {
  if (Key == nullptr) return EFI_ABORTED;
  return CopyTextToPool(u"MEMORY", Key);
}

EFIAPI EFI_STATUS GetResultText(TestModuleProtocol*, UINT64 Code, CHAR16** Text) {
  const UINT64 Id = Code == MEMORY_RESULT_LESS_THAN_20MB ? memory_text::LessThan20Mb
                    : Code == MEMORY_RESULT_CANNOT_CLAIM ? memory_text::CannotClaim
                                                         : memory_text::UnknownError;
  return CopyMemoryText(Id, Text);
}

EFIAPI EFI_STATUS GetDeviceName(TestModuleProtocol*, UINT64, CHAR16** Name) {
  return CopyMemoryText(memory_text::DeviceName, Name);
}

EFIAPI UINT64 LogRowCount(TestModuleProtocol*) { return MemoryLogRowCount(); }

EFIAPI EFI_STATUS GetLogRow(TestModuleProtocol*, UINT64 Row, CHAR16** Key, CHAR16** Value) {
  return MemoryLogRow(Row, Key, Value);
}

EFIAPI EFI_STATUS TranslateKey(TestModuleProtocol*, const CHAR16* Key, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  const CHAR16* Known = MemoryKeyText(Key);
  return CopyTextToPool(Known != nullptr ? Known : Key, Text);
}

EFIAPI UINT64 SummaryLineCount() { return 1; }
EFIAPI EFI_STATUS GetSummaryLine(UINT64 Index, CHAR16** Text) { return MemorySummaryLine(Index, Text); }
EFIAPI EFI_STATUS EvaluateResults(TestModuleProtocol*, UINT64**, TEST_MESSAGE_CALLBACK) { return EFI_ABORTED; }

VOID FillOperations(TestModuleProtocol& Record) {
  Record.RunTest = RunTest;
  Record.GetAlgorithmName = GetAlgorithmName;
  Record.GetAlgorithmKey = GetAlgorithmKey;
  Record.GetAlgorithmCount = One;
  Record.GetRunInfoRow = GetRunInfoRow;
  Record.GetRunInfoRowCount = RunInfoRowCount;
  Record.GetModuleCode = GetModuleCode;
  Record.GetTestName = GetTestName;
  Record.StopTest = StopTest;
  Record.GetSystemInfoRow = GetSystemInfoRow;
  Record.GetSystemInfoRowCount = SystemInfoRowCount;
  Record.GetModuleName = GetModuleName;
  Record.GetModuleKey = GetModuleKey;
  Record.GetResultText = GetResultText;
  Record.GetDeviceCount = One;
  Record.GetDeviceName = GetDeviceName;
  Record.GetLogRowCount = LogRowCount;
  Record.GetLogRow = GetLogRow;
  Record.TranslateKey = TranslateKey;
  Record.GetSummaryLineCount = SummaryLineCount;
  Record.GetSummaryLine = GetSummaryLine;
  Record.EvaluateResults = EvaluateResults;
}

EFIAPI EFI_STATUS Unload(EFI_HANDLE) {
  ReleaseMemoryModules(MemoryTest.Modules);
  return ReleaseTestModule(MemoryTest.Installation);
}

}  // namespace

EFI_STATUS InstallMemoryTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*) {
  const TestModuleDescriptor Module = {
      .Guid = MemoryTestProtocolGuid,
      .Installation = &MemoryTest.Installation,
      .Unload = Unload,
      .FillOperations = FillOperations,
      .StringTableName = u"Memory",
      .AddTestFailureFormat = u"Falha ao instalar Memory Test em Test Collection Protocol: %r\n",
      .InstallFailureFormat = u"Falha ao instalar Memory Test Protocol: %r\n",
      .Complete = [] { CollectMemoryModules(MemoryTest.Modules); },
  };
  return InstallTestModule(ImageHandle, Module);
}

}  // namespace tarvik
