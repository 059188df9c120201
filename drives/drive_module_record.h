// The test module record of a drive module: every slot but the run's reaches
// the module's state through Traits::Of and answers from the module's texts,
// rows and keys, the same way for every drive kind. Traits names them:
//   Module; Of(This); Text(Module, Id); AlgorithmCount, AlgorithmNameText(I),
//   AlgorithmKey(I); RunInfoRows, RunInfoRow; DeviceName; LogRowsPerDrive,
//   LogRow; SystemInfoRowsPerDrive, SystemInfoRow; KeyText; the texts
//   TestNameText, ModuleNameText and FailedToRunText; Code and Key; and the
//   run's RunTest, StopTest and EvaluateResults.
#pragma once

#include "core/pool_text.h"
#include "registry/module_protocol.h"

namespace tarvik {

template <typename Traits>
class DriveModuleRecord {
 public:
  // Fills Record's slots; the device table is the module's own.
  static VOID Fill(TestModuleProtocol& Record, VOID* DeviceTable) {
    Record.RunTest = Traits::RunTest;
    Record.GetAlgorithmName = GetAlgorithmName;
    Record.GetAlgorithmKey = GetAlgorithmKey;
    Record.GetAlgorithmCount = GetAlgorithmCount;
    Record.GetRunInfoRow = GetRunInfoRow;
    Record.GetRunInfoRowCount = GetRunInfoRowCount;
    Record.GetModuleCode = GetModuleCode;
    Record.GetTestName = GetTestName;
    Record.StopTest = Traits::StopTest;
    Record.GetSystemInfoRow = GetSystemInfoRow;
    Record.GetSystemInfoRowCount = GetSystemInfoRowCount;
    Record.GetModuleName = GetModuleName;
    Record.GetModuleKey = GetModuleKey;
    Record.GetResultText = GetResultText;
    Record.DeviceTable = DeviceTable;
    Record.GetDeviceCount = GetDeviceCount;
    Record.GetDeviceName = GetDeviceName;
    Record.GetLogRowCount = GetLogRowCount;
    Record.GetLogRow = GetLogRow;
    Record.TranslateKey = TranslateKey;
    Record.GetSummaryLineCount = GetSummaryLineCount;
    Record.GetSummaryLine = GetSummaryLine;
    Record.EvaluateResults = Traits::EvaluateResults;
  }

 private:
  using Module = typename Traits::Module;

  static EFI_STATUS Copy(const CHAR16* Source, CHAR16** Text) {
    if (Text == nullptr) return EFI_ABORTED;
    return CopyTextToPool(Source, Text);
  }
  static EFI_STATUS CopyText(TestModuleProtocol* This, UINT64 Id, CHAR16** Text) {
    const Module* State = Traits::Of(This);
    if (State == nullptr) return EFI_ABORTED;
    return Copy(Traits::Text(*State, Id), Text);
  }
  static UINT64 DeviceCount(TestModuleProtocol* This) {
    const Module* State = Traits::Of(This);
    return State == nullptr ? 0 : State->Drives.DeviceCount;
  }

  static EFIAPI EFI_STATUS GetAlgorithmName(TestModuleProtocol* This, UINT64 Index, CHAR16** Name) {
    if (Index >= Traits::AlgorithmCount) return EFI_ABORTED;
    return CopyText(This, Traits::AlgorithmNameText(Index), Name);
  }
  static EFIAPI EFI_STATUS GetAlgorithmKey(TestModuleProtocol*, UINT64 Index, CHAR16** Key) {
    if (Index >= Traits::AlgorithmCount) return EFI_ABORTED;
    return Copy(Traits::AlgorithmKey(Index), Key);
  }
  static EFIAPI UINT64 GetAlgorithmCount(TestModuleProtocol*) { return Traits::AlgorithmCount; }
  static EFIAPI EFI_STATUS GetRunInfoRow(TestModuleProtocol* This, UINT64 Row, UINT64 Device, CHAR16** Label,
                                         CHAR16** Value) {
    const Module* State = Traits::Of(This);
    if (State == nullptr) return EFI_ABORTED;
    return Traits::RunInfoRow(*State, Row, Device, Label, Value);
  }
  static EFIAPI UINT64 GetRunInfoRowCount(TestModuleProtocol*) { return Traits::RunInfoRows; }
  static EFIAPI EFI_STATUS GetModuleCode(TestModuleProtocol*, CHAR16** Code) { return Copy(Traits::Code, Code); }
  static EFIAPI EFI_STATUS GetTestName(TestModuleProtocol* This, CHAR16** Name) {
    return CopyText(This, Traits::TestNameText, Name);
  }
  static EFIAPI EFI_STATUS GetSystemInfoRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Label, CHAR16** Value) {
    Module* State = Traits::Of(This);
    if (State == nullptr) return EFI_ABORTED;
    return Traits::SystemInfoRow(*State, Row, Label, Value);
  }
  static EFIAPI UINT64 GetSystemInfoRowCount(TestModuleProtocol* This) {
    return DeviceCount(This) * Traits::SystemInfoRowsPerDrive;
  }
  static EFIAPI EFI_STATUS GetModuleName(TestModuleProtocol* This, CHAR16** Name) {
    return CopyText(This, Traits::ModuleNameText, Name);
  }
  static EFIAPI EFI_STATUS GetModuleKey(TestModuleProtocol*, CHAR16** Key) { return Copy(Traits::Key, Key); }
  // One text for every code: a drive module has no codes of its own.
  static EFIAPI EFI_STATUS GetResultText(TestModuleProtocol* This, UINT64, CHAR16** Text) {
    return CopyText(This, Traits::FailedToRunText, Text);
  }
  static EFIAPI UINT64 GetDeviceCount(TestModuleProtocol* This) { return DeviceCount(This); }
  static EFIAPI EFI_STATUS GetDeviceName(TestModuleProtocol* This, UINT64 Device, CHAR16** Name) {
    const Module* State = Traits::Of(This);
    if (State == nullptr) return EFI_ABORTED;
    return Traits::DeviceName(*State, Device, Name);
  }
  static EFIAPI UINT64 GetLogRowCount(TestModuleProtocol* This) { return DeviceCount(This) * Traits::LogRowsPerDrive; }
  static EFIAPI EFI_STATUS GetLogRow(TestModuleProtocol* This, UINT64 Row, CHAR16** Key, CHAR16** Value) {
    const Module* State = Traits::Of(This);
    if (State == nullptr) return EFI_ABORTED;
    return Traits::LogRow(*State, Row, Key, Value);
  }
  static EFIAPI EFI_STATUS TranslateKey(TestModuleProtocol* This, const CHAR16* Key, CHAR16** Text) {
    const Module* State = Traits::Of(This);
    if (State == nullptr || Text == nullptr) return EFI_ABORTED;
    const CHAR16* Known = Traits::KeyText(*State, Key);
    return CopyTextToPool(Known != nullptr ? Known : Key, Text);
  }
  static EFIAPI UINT64 GetSummaryLineCount() { return 0; }
  static EFIAPI EFI_STATUS GetSummaryLine(UINT64, CHAR16**) { return EFI_ABORTED; }
};

}  // namespace tarvik
