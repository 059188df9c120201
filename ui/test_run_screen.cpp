#include "ui/test_run_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/wide_string.h"
#include "log/log_protocol.h"
#include "registry/test_collection_protocol.h"
#include "resultcode/error_code_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "ui/key_input.h"
#include "ui/log_screen.h"
#include "ui/main_screen.h"
#include "ui/screen_toolkit.h"
#include "ui/selection_screen.h"
#include "ui/test_run_record.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit volatile UINT8 TestRunning = 0;
constinit INT64 LastPercent = 0;
constinit INT8 CurrentDevice = 0;
constinit INT8 CurrentAlgorithm = 0;
constinit UINT8 AlgorithmOrdinal = 0;
constinit UINT8 DevicesDone = 0;
constinit UINT64 LongestAlgorithmName = 0;
constinit UINT64 ResultLineCount = 0;
constinit UINT64 ResultVisibleLines = 0;
constinit UINT64 ResultScrollTop = 0;
constinit UINT64* SpinnerRow = nullptr;
constinit UINT8 SpinnerState = 0;

namespace {

constexpr UINT64 KeyPollPeriod = 50000;       // 5 ms in 100 ns units
constexpr UINT64 SpinnerPeriod = 20000000;    // 2 s
constexpr UINT64 MaxResultCodeAlgorithms = 15;

struct StateLook {
  UINT64 Text;
  UINTN Attribute;
};
// Queue states 0 to 5 as the right panel shows them.
constexpr StateLook StateLooks[] = {{ui_text::OnQueue, 0x31},  {ui_text::InProgress, 0x31},
                                    {ui_text::Passed, 0x02},   {ui_text::Failed, 0x34},
                                    {ui_text::Canceled, 0x31}, {ui_text::NotSupported, 0x31}};

EFI_EVENT KeyPollEvent = nullptr;
EFI_EVENT SpinnerEvent = nullptr;
// While a module's message box waits for its answer, its keys are the box's:
// the key poll leaves them alone.
volatile UINT8 ModuleBoxOpen = 0;

// A module text for drawing, freed when it goes out of scope.
PoolPtr<CHAR16> DeviceName(UINT64 Device) {
  CHAR16* Name = nullptr;
  CurrentTest->GetDeviceName(CurrentTest, Device, &Name);
  return PoolPtr<CHAR16>(Name);
}

PoolPtr<CHAR16> AlgorithmName(UINT64 Algorithm) {
  CHAR16* Name = nullptr;
  CurrentTest->GetAlgorithmName(CurrentTest, Algorithm, &Name);
  return PoolPtr<CHAR16>(Name);
}

const CHAR16* OrEmpty(const PoolPtr<CHAR16>& Text) { return Text ? Text.get() : u""; }

EFIAPI VOID RunKeyPoll(EFI_EVENT, VOID*) {
  if (ModuleBoxOpen == 1) return;
  EFI_INPUT_KEY Key = {0, 0};
  if (EFI_ERROR(gST->ConIn->ReadKeyStroke(gST->ConIn, &Key))) return;
  if (Key.ScanCode == ScanEscape && CurrentTest->StopTest(CurrentTest) == EFI_SUCCESS) TestRunning = 0;
  if (ScrollByKey(Key, &ResultScrollTop, ResultLineCount, ResultVisibleLines))
    DrawTestResults(ResultsMode::Update, nullptr, static_cast<UINT64>(CurrentDevice));
}

EFIAPI VOID RunSpinnerTick(EFI_EVENT, VOID* Context) {
  if (ClockEnabled == 1) StepSpinner(*static_cast<UINT64*>(Context), &SpinnerState);
}

VOID StartRunTimers() {
  if (!EFI_ERROR(gBS->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, RunKeyPoll, nullptr, &KeyPollEvent)))
    gBS->SetTimer(KeyPollEvent, TimerPeriodic, KeyPollPeriod);
  if (!EFI_ERROR(gBS->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, RunSpinnerTick, SpinnerRow,
                                  &SpinnerEvent)))
    gBS->SetTimer(SpinnerEvent, TimerPeriodic, SpinnerPeriod);
}

VOID StopRunTimers() {
  EFI_EVENT* const Events[] = {&KeyPollEvent, &SpinnerEvent};
  for (EFI_EVENT* Event : Events) {
    if (*Event != nullptr) gBS->CloseEvent(*Event);
    *Event = nullptr;
  }
}

UINT64 MeasureLongestAlgorithmName() {
  UINT64 Longest = 0;
  for (UINT64 A = 0; A < RunAlgorithmCount; ++A) {
    const PoolPtr<CHAR16> Name = AlgorithmName(A);
    const UINT64 Length = Name ? StrLen(Name.get()) : 0;
    if (Length > Longest) Longest = Length;
  }
  return Longest;
}

// The summary the module gives after the run.
VOID CollectSummaryLines() {
  SummaryLineCount = CurrentTest->GetSummaryLineCount();
  VOID* Buffer = nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, (SummaryLineCount > 0 ? SummaryLineCount : 1) * sizeof(CHAR16*),
                                  &Buffer))) {
    SummaryLineCount = 0;
    return;
  }
  SummaryLines = static_cast<CHAR16**>(Buffer);
  for (UINT64 I = 0; I < SummaryLineCount; ++I) {
    SummaryLines[I] = nullptr;
    CurrentTest->GetSummaryLine(I, &SummaryLines[I]);
  }
}

// Hands the module the outcome of every pair; redraws the left panel when
// the module showed something over it.
VOID EvaluateOutcome() {
  PoolPtr<UINT64*> Rows;
  if (EFI_ERROR(Rows.Allocate((RunDeviceCount > 0 ? RunDeviceCount : 1) * sizeof(UINT64*)))) return;
  PoolPtr<UINT64> Cells;
  const UINT64 CellCount = RunDeviceCount * RunAlgorithmCount;
  if (EFI_ERROR(Cells.Allocate((CellCount > 0 ? CellCount : 1) * sizeof(UINT64)))) return;
  for (UINT64 D = 0; D < RunDeviceCount; ++D) {
    Rows.get()[D] = Cells.get() + D * RunAlgorithmCount;
    for (UINT64 A = 0; A < RunAlgorithmCount; ++A) {
      const UINT8 State = TestStates[D][A];
      Rows.get()[D][A] = State == 2 ? TEST_RESULT_PASSED
                         : State == 3 ? TEST_RESULT_FAILED
                         : State == 5 ? TEST_RESULT_NOT_SUPPORTED
                                      : 0;
    }
  }
  if (CurrentTest->EvaluateResults(CurrentTest, Rows.get(), TestMessageCallback) == EFI_SUCCESS) {
    ClearArea(0, ScreenColumns() - 1, 4, ScreenRows() - 3);
    DrawTestProgress(LastPercent, static_cast<UINT64>(CurrentDevice - 1), static_cast<UINT64>(CurrentAlgorithm - 1),
                     static_cast<UINT64>(AlgorithmOrdinal - 1));
  }
}

// A RunTest value outside the outcome table ends the flow with an error box.
VOID ErrorExit(UINT64 Result) {
  StopRunTimers();
  CHAR16* ModuleText = nullptr;
  if (Result != TEST_RESULT_PLATFORM_ERROR) CurrentTest->GetResultText(CurrentTest, Result, &ModuleText);
  const PoolPtr<CHAR16> Owned(ModuleText);
  ShowMessageBox(Result == TEST_RESULT_PLATFORM_ERROR ? u"Error in UEFI execution of test." : OrEmpty(Owned),
                 static_cast<UINT8>(MessageBoxType::Error));
  TestRunning = 0;
  CleanUpRun(1);
}

// Runs every chosen pair, device by device. False after an error exit.
bool RunPairs(UINT64& TimeIndex, UINT64& DurationIndex) {
  for (CurrentDevice = 0; static_cast<UINT64>(CurrentDevice) < CurrentTest->GetDeviceCount(CurrentTest) &&
                          static_cast<UINT64>(CurrentDevice) < RunDeviceCount;
       ++CurrentDevice) {
    const UINT64 D = static_cast<UINT64>(CurrentDevice);
    if (DeviceSelection[D] == 0) continue;
    AlgorithmOrdinal = 0;
    for (CurrentAlgorithm = 0; static_cast<UINT64>(CurrentAlgorithm) < CurrentTest->GetAlgorithmCount(CurrentTest) &&
                               static_cast<UINT64>(CurrentAlgorithm) < RunAlgorithmCount;
         ++CurrentAlgorithm) {
      if (TestRunning == 0) break;
      const UINT64 A = static_cast<UINT64>(CurrentAlgorithm);
      if (AlgorithmSelection[A] == 0) continue;
      gRT->GetTime(&RunTimes[TimeIndex], nullptr);
      if (TimeIndex > 1) ElapsedTime(RunTimes[TimeIndex - 1], RunTimes[TimeIndex], &RunDurations[DurationIndex++]);
      LastPercent = -1;
      TestStates[D][A] = 1;
      ++TimeIndex;
      DrawTestResults(ResultsMode::Update, nullptr, D);

      const UINT64 Result = CurrentTest->RunTest(CurrentTest, A, static_cast<UINT8>(D),
                                                 TestProgressCallback, TestMessageCallback);
      if (Result == TEST_RESULT_PASSED || Result == TEST_RESULT_FAILED || Result == TEST_RESULT_NOT_SUPPORTED) {
        TestStates[D][A] = Result == TEST_RESULT_PASSED ? 2 : Result == TEST_RESULT_FAILED ? 3 : 5;
        LastPercent = 100;
      } else if (Result == TEST_RESULT_CANCELED) {
        TestStates[D][A] = 4;
        TestRunning = 0;
      } else {
        ErrorExit(Result);
        return false;
      }
      DrawTestProgress(LastPercent, D, A, AlgorithmOrdinal);
      DrawTestResults(ResultsMode::Update, nullptr, D);
      ++AlgorithmOrdinal;
    }
    ++DevicesDone;
    RequestDeviceResultCode(D, &DeviceResultCodes[D]);
  }
  return true;
}

VOID ShowOutcome(const EFI_TIME& Finish, UINT64 TestIndex) {
  DrawTestResults(ResultsMode::Final, &Finish, static_cast<UINT64>(CurrentDevice));
  const BOOLEAN Scrolls = ResultLineCount > ResultVisibleLines;
  DrawFooter(UiText(Scrolls ? ui_text::OutcomeFooterScroll : ui_text::OutcomeFooter));
  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (ScrollByKey(Key, &ResultScrollTop, ResultLineCount, ResultVisibleLines))
      DrawTestResults(ResultsMode::Final, &Finish, static_cast<UINT64>(CurrentDevice));
    if (Key.ScanCode == ScanEscape) return;
    if (Key.ScanCode == SCAN_F3) {
      ShowTestLogScreen(TestIndex);
      return;
    }
  }
}

}  // namespace

EFIAPI EFI_STATUS TestProgressCallback(VOID*, UINT64 Percent, UINT64) {
  if (TestRunning == 1 && static_cast<INT64>(Percent) > LastPercent)
    DrawTestProgress(static_cast<INT64>(Percent), static_cast<UINT64>(CurrentDevice),
                     static_cast<UINT64>(CurrentAlgorithm), AlgorithmOrdinal);
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS TestMessageCallback(VOID*, const CHAR16* Text, UINT8 Kind, UINT64) {
  switch (static_cast<TestMessageKind>(Kind)) {
    case TestMessageKind::Notice:
    case TestMessageKind::Question: {
      const UINT8 WasEnabled = ClockEnabled;
      ClockEnabled = 0;
      ModuleBoxOpen = 1;
      const EFI_STATUS Answer = ShowMessageBox(
          Text, static_cast<UINT8>(Kind == static_cast<UINT8>(TestMessageKind::Notice) ? MessageBoxType::Notice
                                                                                         : MessageBoxType::Question));
      ModuleBoxOpen = 0;
      if (WasEnabled == 1) ClockEnabled = 1;
      return Answer;
    }
    case TestMessageKind::LogLine: {
      // Only while a pair runs; a line beyond the hundredth is dropped.
      const UINT64 D = static_cast<UINT64>(CurrentDevice);
      const UINT64 A = static_cast<UINT64>(CurrentAlgorithm);
      if (Text == nullptr || CurrentDevice < 0 || CurrentAlgorithm < 0 || D >= RunDeviceCount ||
          A >= RunAlgorithmCount || TestMessages == nullptr)
        return EFI_SUCCESS;
      UINT64& Count = TestMessageCounts[D][A];
      if (Count >= MessagesPerPair) return EFI_SUCCESS;
      CHAR16* Line = TestMessages[D][A][Count++];
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

VOID DrawTestProgress(INT64 Percent, UINT64 Device, UINT64 Algorithm, UINT64 Ordinal) {
  const UINTN C = ScreenColumns();
  const UINTN X0 = C * 5 / 100;
  const UINTN XValue = C * 25 / 100;
  const UINTN BoxRight = C * 4 / 10 + X0 + 3;
  const UINT64 InfoRows = CurrentTest->GetRunInfoRowCount(CurrentTest);
  SetColour(ui_colour::Screen);
  DrawDoubleBox(X0 - 4, BoxRight, 4, ResultVisibleLines + 5);
  for (UINT64 R = 0; R < InfoRows; ++R) {
    CHAR16* Label = nullptr;
    CHAR16* Value = nullptr;
    CurrentTest->GetRunInfoRow(CurrentTest, R, Device, &Label, &Value);
    const PoolPtr<CHAR16> OwnedLabel(Label), OwnedValue(Value);
    MoveCursor(X0, R + 5);
    Print(u"%s", OrEmpty(OwnedLabel));
    MoveCursor(XValue, R + 5);
    Print(u"%s", OrEmpty(OwnedValue));
    ClearRowSegment(R + 5, CursorColumn(), BoxRight);
  }
  MoveCursor(X0, InfoRows + 5);
  Print(u"%s:", UiText(ui_text::Algorithm));
  MoveCursor(XValue, InfoRows + 5);
  Print(u"%s", OrEmpty(AlgorithmName(Algorithm)));
  ClearRowSegment(InfoRows + 5, CursorColumn(), BoxRight);
  MoveCursor(X0, InfoRows + 6);
  Print(u"%s:", UiText(ui_text::AlgorithmNumber));
  MoveCursor(XValue, InfoRows + 6);
  Print(u"%d of %d", static_cast<INT32>(Ordinal + 1), static_cast<INT32>(SelectedAlgorithmCount));
  ClearRowSegment(InfoRows + 6, CursorColumn(), BoxRight);
  LastPercent = Percent;
  PrintCentered(UiText(ui_text::CurrentProgress), InfoRows + 8, X0, C / 2 - X0);
  PrintCentered(UiText(ui_text::DeviceProgress), InfoRows + 11, X0, C / 2 - X0);
  const UINT64 Shown = Percent > 0 ? static_cast<UINT64>(Percent) : 0;
  DrawProgressBar(Shown, InfoRows + 9);
  const UINT64 Chosen = SelectedAlgorithmCount > 0 ? SelectedAlgorithmCount : 1;
  DrawProgressBar((Ordinal * 100 + Shown) / Chosen, InfoRows + 12);
}

VOID DrawTestResults(ResultsMode Mode, const EFI_TIME* FinishTime, UINT64 Device) {
  const UINTN C = ScreenColumns();
  const UINTN Xr = C * 5 / 100 + C / 2;
  const UINTN End = Xr + C * 4 / 10 + 1;
  SetColour(ui_colour::Screen);
  DrawDoubleBox(Xr - 4, Xr + C * 4 / 10 + 2, 4, ResultVisibleLines + 5);
  UINT64 Line = 0;
  UINTN Row = 5;
  const UINT64 Visible = ResultVisibleLines;
  const UINT64 Top = ResultScrollTop;
  AddTimeLine(UiText(ui_text::TestStartedAt), RunTimes[0], Visible, Top, &Line, &Row, Xr, End);
  CHAR16 Text[PrintBufferChars];
  for (UINT64 D = 0; D < RunDeviceCount; ++D) {
    if (DeviceSelection[D] != 1) continue;
    SetColour(ui_colour::Screen);
    ScrolledLine(Visible, Top, &Line, &Row, Xr, OrEmpty(DeviceName(D)), End, LineMode::Finish);
    for (UINT64 A = 0; A < RunAlgorithmCount; ++A) {
      if (AlgorithmSelection[A] != 1) continue;
      SetColour(ui_colour::Screen);
      SPrint(Text, sizeof(Text), u"%s ", OrEmpty(AlgorithmName(A)));
      ScrolledLine(Visible, Top, &Line, &Row, Xr, Text, End, LineMode::PadOnly);
      const UINT8 State = TestStates[D][A];
      const INT32 Remembered = gST->ConOut->Mode->Attribute;
      const BOOLEAN Known = State < sizeof(StateLooks) / sizeof(StateLooks[0]);
      SetColour(Known ? StateLooks[State].Attribute : ui_colour::Screen);
      ScrolledLine(Visible, Top, &Line, &Row, Xr + LongestAlgorithmName + 1,
                   Known ? UiText(StateLooks[State].Text) : u"UNKNOWN", End, LineMode::Continue);
      SetColour(static_cast<UINTN>(Remembered));
      ScrolledLine(Visible, Top, &Line, &Row, CursorColumn(), u"", End, LineMode::Finish);
    }
    ScrolledLine(Visible, Top, &Line, &Row, Xr, nullptr, End, LineMode::Finish);
    SetColour(ui_colour::Screen);
    if (D < Device && DeviceResultCodes[D] != nullptr) {
      SPrint(Text, sizeof(Text), u"%s %s", UiText(ui_text::ResultCode), DeviceResultCodes[D]);
    } else {
      SPrint(Text, sizeof(Text), u"%s -", UiText(ui_text::ResultCode));
    }
    ScrolledLine(Visible, Top, &Line, &Row, Xr, Text, End, LineMode::Finish);
    ScrolledLine(Visible, Top, &Line, &Row, Xr, nullptr, End, LineMode::Finish);
  }
  SetColour(ui_colour::Screen);
  if (Mode == ResultsMode::Final && FinishTime != nullptr)
    AddTimeAndDurationLines(UiText(ui_text::TestFinishedAt), UiText(ui_text::TotalTime), RunTimes[0], *FinishTime,
                            Visible, Top, &Line, &Row, Xr, End);
  DrawScrollBar(ResultLineCount, ResultVisibleLines, ResultScrollTop, 5);
}

EFI_STATUS RequestDeviceResultCode(UINT64 Device, CHAR16** CodeSlot) {
  ErrorCodeProtocol* Codes = LocateService<ErrorCodeProtocol>(ErrorCodeProtocolGuid);
  if (Codes == nullptr) return EFI_ABORTED;
  CHAR16* Prefix = nullptr;
  CurrentTest->GetModuleCode(CurrentTest, &Prefix);
  const PoolPtr<CHAR16> OwnedPrefix(Prefix);

  UINT8 Executed[MaxResultCodeAlgorithms] = {};
  UINT8 Failed[MaxResultCodeAlgorithms] = {};
  for (UINT64 A = 0; A < RunAlgorithmCount && A < MaxResultCodeAlgorithms; ++A) {
    const UINT8 State = TestStates[Device][A];
    Executed[A] = AlgorithmSelection[A] == 1 && (State == 2 || State == 3) ? 1 : 0;
    Failed[A] = AlgorithmSelection[A] != 0 && State == 3 ? 1 : 0;
  }

  // Without SMBIOS the code is made with an empty serial number.
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  const PoolPtr<CHAR16> Serial = SmBios != nullptr ? SystemSerialNumber(*SmBios) : PoolPtr<CHAR16>();
  return Codes->GenerateResultCode(OrEmpty(OwnedPrefix), Executed, Failed, OrEmpty(Serial), RunTimes, CodeSlot);
}

VOID RunTestFlow() {
  const UINT64 TestIndex = MainMenuSelection;
  if (EFI_ERROR(UiTests->GetTest(TestIndex, &CurrentTest)) || CurrentTest == nullptr) return;
  CHAR16* Name = nullptr;
  CurrentTest->GetTestName(CurrentTest, &Name);
  const PoolPtr<CHAR16> TestName(Name);
  const CHAR16* Title = OrEmpty(TestName);

  const UINT64 Devices = CurrentTest->GetDeviceCount(CurrentTest);
  const UINT64 Algorithms = CurrentTest->GetAlgorithmCount(CurrentTest);
  if (EFI_ERROR(SetUpRun(Devices, Algorithms))) {
    CleanUpRun(0);
    return;
  }
  SelectedDeviceCount = 1;
  if (SelectionScreen(CurrentTest, Title, Devices, &SelectedDeviceCount, DeviceSelection, SelectionKind::TestDevices,
                      ChoiceMode::Several) != EFI_SUCCESS) {
    CleanUpRun(0);
    return;
  }
  SelectedAlgorithmCount = 1;
  if (SelectionScreen(CurrentTest, Title, Algorithms, &SelectedAlgorithmCount, AlgorithmSelection,
                      SelectionKind::TestAlgorithms, ChoiceMode::Several) != EFI_SUCCESS) {
    CleanUpRun(0);
    return;
  }

  LastPercent = 0;
  ResultScrollTop = 0;
  TestRunning = 1;
  DevicesDone = 0;
  SpinnerState = 0;
  ResultLineCount = (SelectedAlgorithmCount + 4) * SelectedDeviceCount + 4;
  ResultVisibleLines = ScreenRows() > 9 ? ScreenRows() - 9 : 0;
  const UINT64 Pairs = SelectedAlgorithmCount * SelectedDeviceCount;
  VOID* Buffer = nullptr;
  if (!EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, sizeof(UINT64), &Buffer))) SpinnerRow = static_cast<UINT64*>(Buffer);
  if (!EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, (Pairs + 2) * sizeof(EFI_TIME), &Buffer)))
    RunTimes = static_cast<EFI_TIME*>(Buffer);
  if (!EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, (Pairs > 0 ? Pairs : 1) * sizeof(EFI_TIME), &Buffer)))
    RunDurations = static_cast<EFI_TIME*>(Buffer);
  if (SpinnerRow == nullptr || RunTimes == nullptr || RunDurations == nullptr) {
    CleanUpRun(1);
    return;
  }
  gBS->SetMem(RunTimes, (Pairs + 2) * sizeof(EFI_TIME), 0);
  gBS->SetMem(RunDurations, (Pairs > 0 ? Pairs : 1) * sizeof(EFI_TIME), 0);
  *SpinnerRow = CurrentTest->GetRunInfoRowCount(CurrentTest) + 9;

  DrawScreenFrame(Title, UiText(ResultLineCount > ResultVisibleLines ? ui_text::StopFooterScroll : ui_text::StopFooter));
  DrawPanelTitles(UiText(ui_text::InformationAboutTest), UiText(ui_text::ResultsOfTest));
  StartRunTimers();
  gRT->GetTime(&RunTimes[0], nullptr);
  LongestAlgorithmName = MeasureLongestAlgorithmName();
  DrawTestResults(ResultsMode::First, nullptr, 0);

  UINT64 TimeIndex = 1;
  UINT64 DurationIndex = 0;
  if (!RunPairs(TimeIndex, DurationIndex)) return;
  gRT->GetTime(&RunTimes[TimeIndex], nullptr);
  ElapsedTime(RunTimes[TimeIndex - 1], RunTimes[TimeIndex], &RunDurations[DurationIndex]);
  StopRunTimers();

  CollectSummaryLines();
  ClearSpinner(*SpinnerRow);
  EvaluateOutcome();
  ShowOutcome(RunTimes[TimeIndex], TestIndex);
  CleanUpRun(2);
}

}  // namespace tarvik
