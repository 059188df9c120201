#include "ui/run_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "resultcode/error_code_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 MaxResultCodeAlgorithms = 15;

struct StateLook {
  QueueState State;
  UINT64 Text;
  UINTN Attribute;
};
// Queue states as the right panel shows them; any other is "UNKNOWN".
constexpr StateLook StateLooks[] = {
    {QueueState::OnQueue, ui_text::OnQueue, ui_colour::Status},
    {QueueState::InProgress, ui_text::InProgress, ui_colour::Status},
    {QueueState::Passed, ui_text::Passed, ui_colour::Passed},
    {QueueState::Failed, ui_text::Failed, ui_colour::Failed},
    {QueueState::Canceled, ui_text::Canceled, ui_colour::Status},
    {QueueState::NotSupported, ui_text::NotSupported, ui_colour::Status},
};

const StateLook* LookOf(QueueState State) {
  for (const StateLook& Look : StateLooks)
    if (Look.State == State) return &Look;
  return nullptr;
}

// A module text for drawing, freed when it goes out of scope.
PoolPtr<CHAR16> DeviceName(const TestRun& Run, UINT64 Device) {
  CHAR16* Name = nullptr;
  Run.CurrentTest->GetDeviceName(Run.CurrentTest, Device, &Name);
  return PoolPtr<CHAR16>(Name);
}

PoolPtr<CHAR16> AlgorithmName(const TestRun& Run, UINT64 Algorithm) {
  CHAR16* Name = nullptr;
  Run.CurrentTest->GetAlgorithmName(Run.CurrentTest, Algorithm, &Name);
  return PoolPtr<CHAR16>(Name);
}

const CHAR16* OrEmpty(const PoolPtr<CHAR16>& Text) { return Text ? Text.get() : u""; }

}  // namespace

VOID DrawTestProgress(TestRun& Run, INT64 Percent, UINT64 Device, UINT64 Algorithm, UINT64 Ordinal) {
  TestModuleProtocol* Module = Run.CurrentTest;
  const UINTN C = ScreenColumns();
  const UINTN X0 = C * 5 / 100;
  const UINTN XValue = C * 25 / 100;
  const UINTN BoxRight = C * 4 / 10 + X0 + 3;
  const UINT64 InfoRows = Module->GetRunInfoRowCount(Module);
  SetColour(ui_colour::Screen);
  DrawDoubleBox(X0 - 4, BoxRight, 4, Run.ResultVisibleLines + 5);
  for (UINT64 R = 0; R < InfoRows; ++R) {
    CHAR16* Label = nullptr;
    CHAR16* Value = nullptr;
    Module->GetRunInfoRow(Module, R, Device, &Label, &Value);
    const PoolPtr<CHAR16> OwnedLabel(Label), OwnedValue(Value);
    PrintLabelledRow(OwnedLabel.get(), OwnedValue.get(), R + 5, X0, XValue, BoxRight);
  }
  const UINT64 Chosen = Run.Record.SelectedAlgorithmCount;
  MoveCursor(X0, InfoRows + 5);
  Print(u"%s:", UiText(ui_text::Algorithm));
  const UINTN AlgorithmEnd = PrintWithin(AlgorithmName(Run, Algorithm).get(), InfoRows + 5, XValue, BoxRight);
  ClearRowSegment(InfoRows + 5, AlgorithmEnd, BoxRight);
  MoveCursor(X0, InfoRows + 6);
  Print(u"%s:", UiText(ui_text::AlgorithmNumber));
  MoveCursor(XValue, InfoRows + 6);
  Print(u"%d of %d", static_cast<INT32>(Ordinal + 1), static_cast<INT32>(Chosen));
  ClearRowSegment(InfoRows + 6, CursorColumn(), BoxRight);
  Run.LastPercent = Percent;
  PrintCentered(UiText(ui_text::CurrentProgress), InfoRows + 8, X0, C / 2 - X0);
  PrintCentered(UiText(ui_text::DeviceProgress), InfoRows + 11, X0, C / 2 - X0);
  const UINT64 Shown = Percent > 0 ? static_cast<UINT64>(Percent) : 0;
  DrawProgressBar(Shown, InfoRows + 9);
  DrawProgressBar((Ordinal * 100 + Shown) / (Chosen > 0 ? Chosen : 1), InfoRows + 12);
}

VOID DrawTestResults(const TestRun& Run, ResultsMode Mode, const EFI_TIME* FinishTime, UINT64 Device) {
  const TestRunRecord& Record = Run.Record;
  const UINTN C = ScreenColumns();
  const UINTN Xr = C * 5 / 100 + C / 2;
  const UINTN End = Xr + C * 4 / 10 + 1;
  SetColour(ui_colour::Screen);
  DrawDoubleBox(Xr - 4, Xr + C * 4 / 10 + 2, 4, Run.ResultVisibleLines + 5);
  UINT64 Line = 0;
  UINTN Row = 5;
  const UINT64 Visible = Run.ResultVisibleLines;
  const UINT64 Top = Run.ResultScrollTop;
  AddTimeLine(UiText(ui_text::TestStartedAt), Record.RunTimes[0], Visible, Top, &Line, &Row, Xr, End);
  CHAR16 Text[PrintBufferChars];
  for (UINT64 D = 0; D < Record.RunDeviceCount; ++D) {
    if (Record.DeviceSelection[D] != 1) continue;
    SetColour(ui_colour::Screen);
    ScrolledLine(Visible, Top, &Line, &Row, Xr, OrEmpty(DeviceName(Run, D)), End, LineMode::Finish);
    for (UINT64 A = 0; A < Record.RunAlgorithmCount; ++A) {
      if (Record.AlgorithmSelection[A] != 1) continue;
      SetColour(ui_colour::Screen);
      SPrint(Text, sizeof(Text), u"%s ", OrEmpty(AlgorithmName(Run, A)));
      ScrolledLine(Visible, Top, &Line, &Row, Xr, Text, End, LineMode::PadOnly);
      const StateLook* Look = LookOf(Record.State(D, A));
      const INT32 Remembered = gST->ConOut->Mode->Attribute;
      SetColour(Look != nullptr ? Look->Attribute : ui_colour::Screen);
      ScrolledLine(Visible, Top, &Line, &Row, Xr + Run.LongestAlgorithmName + 1,
                   Look != nullptr ? UiText(Look->Text) : u"UNKNOWN", End, LineMode::Continue);
      SetColour(static_cast<UINTN>(Remembered));
      ScrolledLine(Visible, Top, &Line, &Row, CursorColumn(), u"", End, LineMode::Finish);
    }
    ScrolledLine(Visible, Top, &Line, &Row, Xr, nullptr, End, LineMode::Finish);
    SetColour(ui_colour::Screen);
    if (D < Device && Record.DeviceResultCodes[D] != nullptr) {
      SPrint(Text, sizeof(Text), u"%s %s", UiText(ui_text::ResultCode), Record.DeviceResultCodes[D]);
    } else {
      SPrint(Text, sizeof(Text), u"%s -", UiText(ui_text::ResultCode));
    }
    ScrolledLine(Visible, Top, &Line, &Row, Xr, Text, End, LineMode::Finish);
    ScrolledLine(Visible, Top, &Line, &Row, Xr, nullptr, End, LineMode::Finish);
  }
  SetColour(ui_colour::Screen);
  if (Mode == ResultsMode::Final && FinishTime != nullptr)
    AddTimeAndDurationLines(UiText(ui_text::TestFinishedAt), UiText(ui_text::TotalTime), Record.RunTimes[0],
                            *FinishTime, Visible, Top, &Line, &Row, Xr, End);
  DrawScrollBar(Run.ResultLineCount, Run.ResultVisibleLines, Run.ResultScrollTop, 5);
}

EFI_STATUS RequestDeviceResultCode(const TestRun& Run, UINT64 Device, CHAR16** CodeSlot) {
  ErrorCodeProtocol* Codes = LocateService<ErrorCodeProtocol>(ErrorCodeProtocolGuid);
  if (Codes == nullptr) return EFI_ABORTED;
  const TestRunRecord& Record = Run.Record;
  CHAR16* Prefix = nullptr;
  Run.CurrentTest->GetModuleCode(Run.CurrentTest, &Prefix);
  const PoolPtr<CHAR16> OwnedPrefix(Prefix);

  UINT8 Executed[MaxResultCodeAlgorithms] = {};
  UINT8 Failed[MaxResultCodeAlgorithms] = {};
  for (UINT64 A = 0; A < Record.RunAlgorithmCount && A < MaxResultCodeAlgorithms; ++A) {
    const QueueState State = Record.State(Device, A);
    const BOOLEAN Ended = State == QueueState::Passed || State == QueueState::Failed;
    Executed[A] = Record.AlgorithmSelection[A] == 1 && Ended ? 1 : 0;
    Failed[A] = Record.AlgorithmSelection[A] != 0 && State == QueueState::Failed ? 1 : 0;
  }

  // Without SMBIOS the code is made with an empty serial number.
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  const PoolPtr<CHAR16> Serial = SmBios != nullptr ? SystemSerialNumber(*SmBios) : PoolPtr<CHAR16>();
  return Codes->GenerateResultCode(OrEmpty(OwnedPrefix), Executed, Failed, OrEmpty(Serial), Record.RunTimes,
                                   CodeSlot);
}

}  // namespace tarvik
