// Turns what a test run collected into log lines: a header, then per tested
// device its resource rows, its summary and algorithm lines and its result
// code, then a footer.
#include "core/locate.h"
#include "core/pool.h"
#include "log/line_store.h"
#include "log/log_operations.h"
#include "registry/module_registry_protocol.h"

namespace tarvik {
namespace {

const CHAR16* ResultWord(QueueState State) {
  switch (State) {
    case QueueState::OnQueue: return log_word::Skipped;
    case QueueState::Passed: return log_word::Success;
    case QueueState::Failed: return log_word::Failure;
    case QueueState::Canceled: return log_word::Aborted;
    default: return log_word::Unsupported;
  }
}

UINT32 WholeSeconds(const EFI_TIME& Duration) {
  return Duration.Hour * 3600u + Duration.Minute * 60u + Duration.Second;
}

EFI_STATUS FindModule(UINT64 ModuleIndex, TestModuleProtocol** Module) {
  TestCollectionProtocol* Registry = LocateService<TestCollectionProtocol>(TestCollectionProtocolGuid);
  if (Registry == nullptr) return EFI_NOT_FOUND;
  return Registry->GetTest(ModuleIndex, Module);
}

}  // namespace

EFIAPI EFI_STATUS BuildTestLog(UINT64 ModuleIndex, UINT8** TestStates, const UINT8* AlgorithmSelection,
                               const UINT8* DeviceSelection, CHAR16** DeviceResultCodes, const EFI_TIME* RunTimes,
                               const EFI_TIME* RunDurations, CHAR16** SummaryLines, UINT64 SummaryLineCount,
                               CHAR16**** TestMessages, UINT64** TestMessageCounts) {
  TestModuleProtocol* Module = nullptr;
  EFI_STATUS Status = FindModule(ModuleIndex, &Module);
  if (EFI_ERROR(Status)) return Status;
  if (Module == nullptr || TestStates == nullptr || AlgorithmSelection == nullptr || DeviceSelection == nullptr ||
      RunTimes == nullptr) {
    return EFI_INVALID_PARAMETER;
  }

  const UINT64 Algorithms = Module->GetAlgorithmCount(Module);
  const UINT64 Devices = Module->GetDeviceCount(Module);
  const UINT64 Rows = Module->GetLogRowCount(Module);
  UINT64 SelectedAlgorithms = 0, SelectedDevices = 0, Messages = 0;
  for (UINT64 A = 0; A < Algorithms; ++A) SelectedAlgorithms += AlgorithmSelection[A] == 1 ? 1 : 0;
  for (UINT64 D = 0; D < Devices; ++D) SelectedDevices += DeviceSelection[D] == 1 ? 1 : 0;
  if (TestMessageCounts != nullptr) {
    for (UINT64 D = 0; D < Devices; ++D) {
      for (UINT64 A = 0; A < Algorithms; ++A) Messages += TestMessageCounts[D][A];
    }
  }
  if (SummaryLines == nullptr) SummaryLineCount = 0;
  Status = AllocateLogLines(Rows + Messages + 2 * (SelectedAlgorithms + 1) * SelectedDevices + 2 +
                            SummaryLineCount * SelectedDevices);
  if (EFI_ERROR(Status)) return Status;

  PoolPtr<CHAR16> ModuleKey;
  CHAR16* Key = nullptr;
  if (!EFI_ERROR(Module->GetModuleKey(Module, &Key))) ModuleKey.reset(Key);
  const CHAR16* ModuleKeyText = ModuleKey ? ModuleKey.get() : u"";

  CurrentLogRun() = {.Kind = LogRunKind::Test, .ModuleIndex = ModuleIndex, .Start = RunTimes[0]};

  LogLineCursor Cursor;
  CHAR16 RunStart[TimeStampChars + 1];
  FormatTimeStamp(RunTimes[0], RunStart);
  Cursor.Next().Append(log_word::HeaderMark).Append(u" ").Append(RunStart).AppendFormatted(
      u" %s %ld", ModuleKeyText, MillisecondsSince1970(RunTimes[0]));

  const UINT64 RowsPerDevice = Devices == 0 ? 0 : Rows / Devices;
  UINT64 TimeIndex = 1, DurationIndex = 0;
  for (UINT64 D = 0; D < Devices; ++D) {
    if (DeviceSelection[D] != 1) continue;
    for (UINT64 K = 0; K < RowsPerDevice; ++K) {
      CHAR16* RowKey = nullptr;
      CHAR16* RowValue = nullptr;
      LogLineWriter Line = Cursor.Next();
      if (EFI_ERROR(Module->GetLogRow(Module, RowsPerDevice * D + K, &RowKey, &RowValue))) continue;
      PoolPtr<CHAR16> OwnedKey(RowKey), OwnedValue(RowValue);
      Line.Append(RowKey).Append(u" ").Append(RowValue);
    }
    Cursor.Next().Append(log_word::Start).Append(u" ").Append(log_word::Tests);
    for (UINT64 S = 0; S < SummaryLineCount; ++S) Cursor.NextStamped(RunTimes[TimeIndex]).Append(SummaryLines[S]);

    for (UINT64 A = 0; A < Algorithms; ++A) {
      if (AlgorithmSelection[A] != 1) continue;
      PoolPtr<CHAR16> AlgorithmKey;
      CHAR16* Text = nullptr;
      if (!EFI_ERROR(Module->GetAlgorithmKey(Module, A, &Text))) AlgorithmKey.reset(Text);
      const CHAR16* AlgorithmKeyText = AlgorithmKey ? AlgorithmKey.get() : u"";

      Cursor.NextStamped(RunTimes[TimeIndex]).Append(log_word::Start).Append(u" ").Append(AlgorithmKeyText);
      const UINT64 CellMessages = TestMessageCounts != nullptr ? TestMessageCounts[D][A] : 0;
      for (UINT64 M = 0; M < CellMessages; ++M) {
        Cursor.NextStamped(RunTimes[TimeIndex]).Append(TestMessages[D][A][M]);
      }

      const QueueState State = static_cast<QueueState>(TestStates[D][A]);
      const BOOLEAN Ran = State != QueueState::OnQueue;
      LogLineWriter Stop = Cursor.NextStamped(RunTimes[Ran ? TimeIndex + 1 : TimeIndex]);
      Stop.Append(log_word::Stop).Append(u" ").Append(AlgorithmKeyText).Append(u" ").Append(ResultWord(State));
      if (Ran && State != QueueState::NotSupported && RunDurations != nullptr) {
        Stop.AppendFormatted(log_word::SecondsFormat, WholeSeconds(RunDurations[DurationIndex]));
      }
      if (Ran) {
        ++TimeIndex;
        ++DurationIndex;
      }
    }
    // A device without a result code (the serial number was too short)
    // ends its section without one.
    LogLineWriter End = Cursor.Next();
    End.Append(log_word::Stop).Append(u" ").Append(log_word::Tests);
    if (DeviceResultCodes != nullptr && DeviceResultCodes[D] != nullptr) End.Append(u" ").Append(DeviceResultCodes[D]);
  }
  Cursor.Next().Append(log_word::FooterMark).Append(u" ").Append(ModuleKeyText);
  return EFI_SUCCESS;
}

}  // namespace tarvik
