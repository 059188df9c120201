#include "ui/run_flow.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/periodic_timer.h"
#include "core/pool.h"
#include "core/wide_string.h"
#include "registry/module_registry_protocol.h"
#include "ui/flow_binding.h"
#include "ui/key_input.h"
#include "ui/log_screen.h"
#include "ui/screen_toolkit.h"
#include "ui/selection_screen.h"
#include "ui/run_screen.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 KeyPollPeriod = 50000;     // 5 ms in 100 ns units
constexpr UINT64 SpinnerPeriod = 20000000;  // 2 s

// The running flow, for the timer notifications and the module's callbacks.
constinit TestRun* ActiveRun = nullptr;

EFIAPI VOID RunKeyPoll(EFI_EVENT, VOID*) {
  TestRun* Run = ActiveRun;
  if (Run == nullptr || Run->ModuleBoxOpen == 1) return;
  EFI_INPUT_KEY Key = {0, 0};
  if (EFI_ERROR(gST->ConIn->ReadKeyStroke(gST->ConIn, &Key))) return;
  if (Key.ScanCode == ScanEscape && Run->CurrentTest->StopTest(Run->CurrentTest) == EFI_SUCCESS) Run->TestRunning = 0;
  if (ScrollByKey(Key, &Run->ResultScrollTop, Run->ResultLineCount, Run->ResultVisibleLines)) {
    const ConsoleStateKeeper Kept;  // the left panel may be half drawn
    DrawTestResults(*Run, ResultsMode::Update, nullptr, static_cast<UINT64>(Run->CurrentDevice));
  }
}

EFIAPI VOID RunSpinnerTick(EFI_EVENT, VOID*) {
  TestRun* Run = ActiveRun;
  if (Run != nullptr && ClockEnabled == 1) StepSpinner(Run->SpinnerRow, &Run->SpinnerState);
}

// The key poll and the spinner while pairs run.
struct RunTimers {
  VOID Start() {
    KeyPoll.StartNotifying(TPL_NOTIFY, RunKeyPoll, nullptr, KeyPollPeriod);
    Spinner.StartNotifying(TPL_NOTIFY, RunSpinnerTick, nullptr, SpinnerPeriod);
  }
  VOID Stop() {
    KeyPoll.Close();
    Spinner.Close();
  }
  PeriodicTimer KeyPoll;
  PeriodicTimer Spinner;
};

UINT64 MeasureLongestAlgorithmName(const TestRun& Run) {
  UINT64 Longest = 0;
  for (UINT64 A = 0; A < Run.Record.RunAlgorithmCount; ++A) {
    CHAR16* Name = nullptr;
    Run.CurrentTest->GetAlgorithmName(Run.CurrentTest, A, &Name);
    const PoolPtr<CHAR16> Owned(Name);
    const UINT64 Length = Owned ? StrLen(Owned.get()) : 0;
    if (Length > Longest) Longest = Length;
  }
  return Longest;
}

UINT64 ResultOf(QueueState State) {
  switch (State) {
    case QueueState::Passed: return TEST_RESULT_PASSED;
    case QueueState::Failed: return TEST_RESULT_FAILED;
    case QueueState::NotSupported: return TEST_RESULT_NOT_SUPPORTED;
    default: return 0;
  }
}

// Hands the module the outcome of every pair; redraws the left panel when
// the module showed something over it.
VOID EvaluateOutcome(TestRun& Run) {
  const TestRunRecord& Record = Run.Record;
  const UINT64 Devices = Record.RunDeviceCount;
  const UINT64 Algorithms = Record.RunAlgorithmCount;
  const PoolPtr<UINT64*> Rows(AllocateZeroedArray<UINT64*>(Devices));
  if (!Rows) return;
  const PoolPtr<UINT64> Cells(AllocateZeroedArray<UINT64>(Devices * Algorithms));
  if (!Cells) return;
  for (UINT64 D = 0; D < Devices; ++D) {
    Rows.get()[D] = Cells.get() + D * Algorithms;
    for (UINT64 A = 0; A < Algorithms; ++A) Rows.get()[D][A] = ResultOf(Record.State(D, A));
  }
  if (Run.CurrentTest->EvaluateResults(Run.CurrentTest, Rows.get(), TestMessageCallback) == EFI_SUCCESS) {
    ClearArea(0, ScreenColumns() - 1, 4, ScreenRows() - 3);
    DrawTestProgress(Run, Run.LastPercent, static_cast<UINT64>(Run.CurrentDevice - 1),
                     static_cast<UINT64>(Run.CurrentAlgorithm - 1), static_cast<UINT64>(Run.AlgorithmOrdinal - 1));
  }
}

// A RunTest value outside the outcome table ends the flow with an error box.
VOID ErrorExit(TestRun& Run, RunTimers& Timers, UINT64 Result) {
  Timers.Stop();
  CHAR16* ModuleText = nullptr;
  if (Result != TEST_RESULT_PLATFORM_ERROR) Run.CurrentTest->GetResultText(Run.CurrentTest, Result, &ModuleText);
  const PoolPtr<CHAR16> Owned(ModuleText);
  const CHAR16* Shown = Owned ? Owned.get() : u"";
  if (Result == TEST_RESULT_PLATFORM_ERROR) Shown = u"Error in UEFI execution of test.";
  ShowMessageBox(Shown, static_cast<UINT8>(MessageBoxType::Error));
  Run.TestRunning = 0;
}

// Runs every chosen pair, device by device. False after an error exit.
bool RunPairs(TestRun& Run, RunTimers& Timers, UINT64& TimeIndex, UINT64& DurationIndex) {
  TestModuleProtocol* Module = Run.CurrentTest;
  TestRunRecord& Record = Run.Record;
  for (Run.CurrentDevice = 0; static_cast<UINT64>(Run.CurrentDevice) < Module->GetDeviceCount(Module) &&
                              static_cast<UINT64>(Run.CurrentDevice) < Record.RunDeviceCount;
       ++Run.CurrentDevice) {
    const UINT64 D = static_cast<UINT64>(Run.CurrentDevice);
    if (Record.DeviceSelection[D] == 0) continue;
    Run.AlgorithmOrdinal = 0;
    for (Run.CurrentAlgorithm = 0; static_cast<UINT64>(Run.CurrentAlgorithm) < Module->GetAlgorithmCount(Module) &&
                                   static_cast<UINT64>(Run.CurrentAlgorithm) < Record.RunAlgorithmCount;
         ++Run.CurrentAlgorithm) {
      if (Run.TestRunning == 0) break;
      const UINT64 A = static_cast<UINT64>(Run.CurrentAlgorithm);
      if (Record.AlgorithmSelection[A] == 0) continue;
      gRT->GetTime(&Record.RunTimes[TimeIndex], nullptr);
      if (TimeIndex > 1)
        ElapsedTime(Record.RunTimes[TimeIndex - 1], Record.RunTimes[TimeIndex], &Record.RunDurations[DurationIndex++]);
      Run.LastPercent = -1;
      Record.SetState(D, A, QueueState::InProgress);
      ++TimeIndex;
      DrawTestResults(Run, ResultsMode::Update, nullptr, D);

      // An ESC read while the pair was being drawn would be lost once the
      // module sets its running flag again: such a pair ends canceled
      // without being started.
      const UINT64 Result =
          Run.TestRunning == 0
              ? TEST_RESULT_CANCELED
              : Module->RunTest(Module, A, static_cast<UINT8>(D), TestProgressCallback, TestMessageCallback);
      if (Result == TEST_RESULT_PASSED || Result == TEST_RESULT_FAILED || Result == TEST_RESULT_NOT_SUPPORTED) {
        Record.SetState(D, A,
                        Result == TEST_RESULT_PASSED   ? QueueState::Passed
                        : Result == TEST_RESULT_FAILED ? QueueState::Failed
                                                       : QueueState::NotSupported);
        Run.LastPercent = 100;
      } else if (Result == TEST_RESULT_CANCELED) {
        Record.SetState(D, A, QueueState::Canceled);
        Run.TestRunning = 0;
      } else {
        ErrorExit(Run, Timers, Result);
        return false;
      }
      DrawTestProgress(Run, Run.LastPercent, D, A, Run.AlgorithmOrdinal);
      DrawTestResults(Run, ResultsMode::Update, nullptr, D);
      ++Run.AlgorithmOrdinal;
    }
    ++Run.DevicesDone;
    RequestDeviceResultCode(Run, D, &Record.DeviceResultCodes[D]);
  }
  return true;
}

VOID ShowOutcome(TestRun& Run, const EFI_TIME& Finish) {
  const UINT64 Device = static_cast<UINT64>(Run.CurrentDevice);
  DrawTestResults(Run, ResultsMode::Final, &Finish, Device);
  const BOOLEAN Scrolls = Run.ResultLineCount > Run.ResultVisibleLines;
  DrawFooter(UiText(Scrolls ? ui_text::OutcomeFooterScroll : ui_text::OutcomeFooter));
  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (ScrollByKey(Key, &Run.ResultScrollTop, Run.ResultLineCount, Run.ResultVisibleLines))
      DrawTestResults(Run, ResultsMode::Final, &Finish, Device);
    if (Key.ScanCode == ScanEscape) return;
    if (Key.ScanCode == SCAN_F3) {
      ShowTestLogScreen(Run.TestIndex, Run.Record);
      return;
    }
  }
}

// The run screen from the first pair to the outcome.
VOID RunAndShowOutcome(TestRun& Run, const CHAR16* Title) {
  TestRunRecord& Record = Run.Record;
  Run.LastPercent = 0;
  Run.ResultScrollTop = 0;
  Run.TestRunning = 1;
  Run.DevicesDone = 0;
  Run.SpinnerState = 0;
  Run.ResultLineCount = (Record.SelectedAlgorithmCount + 4) * Record.SelectedDeviceCount + 4;
  Run.ResultVisibleLines = ScreenRows() > 9 ? ScreenRows() - 9 : 0;
  if (EFI_ERROR(Record.SetUpTimes(Record.SelectedAlgorithmCount * Record.SelectedDeviceCount))) return;
  Run.SpinnerRow = Run.CurrentTest->GetRunInfoRowCount(Run.CurrentTest) + 9;

  DrawScreenFrame(Title,
                  UiText(Run.ResultLineCount > Run.ResultVisibleLines ? ui_text::StopFooterScroll : ui_text::StopFooter));
  DrawPanelTitles(UiText(ui_text::InformationAboutTest), UiText(ui_text::ResultsOfTest));
  RunTimers Timers;
  Timers.Start();
  gRT->GetTime(&Record.RunTimes[0], nullptr);
  Run.LongestAlgorithmName = MeasureLongestAlgorithmName(Run);
  DrawTestResults(Run, ResultsMode::First, nullptr, 0);

  UINT64 TimeIndex = 1;
  UINT64 DurationIndex = 0;
  if (!RunPairs(Run, Timers, TimeIndex, DurationIndex)) return;
  gRT->GetTime(&Record.RunTimes[TimeIndex], nullptr);
  ElapsedTime(Record.RunTimes[TimeIndex - 1], Record.RunTimes[TimeIndex], &Record.RunDurations[DurationIndex]);
  Timers.Stop();

  Record.CollectSummary(*Run.CurrentTest);
  ClearSpinner(Run.SpinnerRow);
  EvaluateOutcome(Run);
  ShowOutcome(Run, Record.RunTimes[TimeIndex]);
}

}  // namespace

EFIAPI EFI_STATUS TestProgressCallback(VOID*, UINT64 Percent, UINT64) {
  TestRun* Run = ActiveRun;
  if (Run != nullptr && Run->TestRunning == 1 && static_cast<INT64>(Percent) > Run->LastPercent)
    DrawTestProgress(*Run, static_cast<INT64>(Percent), static_cast<UINT64>(Run->CurrentDevice),
                     static_cast<UINT64>(Run->CurrentAlgorithm), Run->AlgorithmOrdinal);
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS TestMessageCallback(VOID*, const CHAR16* Text, UINT8 Kind, UINT64) {
  TestRun* Run = ActiveRun;
  switch (static_cast<TestMessageKind>(Kind)) {
    case TestMessageKind::Notice:
    case TestMessageKind::Question: {
      const UINT8 WasEnabled = ClockEnabled;
      ClockEnabled = 0;
      if (Run != nullptr) Run->ModuleBoxOpen = 1;
      const EFI_STATUS Answer = ShowMessageBox(
          Text, static_cast<UINT8>(Kind == static_cast<UINT8>(TestMessageKind::Notice) ? MessageBoxType::Notice
                                                                                         : MessageBoxType::Question));
      if (Run != nullptr) Run->ModuleBoxOpen = 0;
      if (WasEnabled == 1) ClockEnabled = 1;
      return Answer;
    }
    case TestMessageKind::LogLine: {
      // Only while a pair runs; a line beyond the hundredth is dropped.
      if (Run == nullptr || Text == nullptr || Run->CurrentDevice < 0 || Run->CurrentAlgorithm < 0) return EFI_SUCCESS;
      const TestRunRecord& Record = Run->Record;
      const UINT64 D = static_cast<UINT64>(Run->CurrentDevice);
      const UINT64 A = static_cast<UINT64>(Run->CurrentAlgorithm);
      if (D >= Record.RunDeviceCount || A >= Record.RunAlgorithmCount || Record.TestMessages == nullptr)
        return EFI_SUCCESS;
      UINT64& Count = Record.TestMessageCounts[D][A];
      if (Count >= MessagesPerPair) return EFI_SUCCESS;
      CHAR16* Line = Record.TestMessages[D][A][Count++];
      UINTN I = 0;
      for (; Text[I] != 0 && I + 1 < MessageLineBytes / sizeof(CHAR16); ++I) Line[I] = Text[I];
      Line[I] = 0;
      return EFI_SUCCESS;
    }
    case TestMessageKind::ClockOff:
      ClockEnabled = 0;
      return EFI_SUCCESS;
    case TestMessageKind::ClockOn:
      ClockEnabled = 1;
      return EFI_SUCCESS;
  }
  return EFI_SUCCESS;
}

VOID RunTestFlow(UINT64 TestIndex) {
  TestRun Run;
  Run.TestIndex = TestIndex;
  if (EFI_ERROR(UiTests->GetTest(TestIndex, &Run.CurrentTest)) || Run.CurrentTest == nullptr) return;
  const FlowBinding<TestRun> Bound(ActiveRun, Run);
  TestModuleProtocol* Module = Run.CurrentTest;
  CHAR16* Name = nullptr;
  Module->GetTestName(Module, &Name);
  const PoolPtr<CHAR16> TestName(Name);
  const CHAR16* Title = TestName ? TestName.get() : u"";

  TestRunRecord& Record = Run.Record;
  const UINT64 Devices = Module->GetDeviceCount(Module);
  const UINT64 Algorithms = Module->GetAlgorithmCount(Module);
  if (EFI_ERROR(Record.SetUp(Devices, Algorithms))) return;
  if (SelectionScreen(Module, Title, Devices, &Record.SelectedDeviceCount, Record.DeviceSelection,
                      SelectionKind::TestDevices, ChoiceMode::Several) != EFI_SUCCESS)
    return;
  if (SelectionScreen(Module, Title, Algorithms, &Record.SelectedAlgorithmCount, Record.AlgorithmSelection,
                      SelectionKind::TestAlgorithms, ChoiceMode::Several) != EFI_SUCCESS)
    return;
  RunAndShowOutcome(Run, Title);
}

}  // namespace tarvik
