#include "ui/recovery_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/pool_text.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 LineGrowth = 5;

const CHAR16* OrEmpty(const PoolPtr<CHAR16>& Text) { return Text ? Text.get() : u""; }

// Tells a row's new text from the one drawn last without keeping a copy.
UINT64 HashRow(const CHAR16* Label, const CHAR16* Value) {
  UINT64 Hash = 0xCBF29CE484222325ull;
  const CHAR16* const Texts[] = {Label, Value};
  for (const CHAR16* Text : Texts) {
    for (const CHAR16* C = Text; C != nullptr && *C != 0; ++C) Hash = (Hash ^ *C) * 0x100000001B3ull;
    Hash = (Hash ^ 0xFFFF) * 0x100000001B3ull;
  }
  return Hash;
}

UINTN InfoLeft() { return ColumnsPercent(5); }
UINTN InfoBoxRight() { return ScreenColumns() * 4 / 10 + InfoLeft() + 3; }

}  // namespace

RecoveryRun::~RecoveryRun() { FreeTextArray(RecoverLines, RecoverLineCount); }

bool RecoveryRun::SetUp() {
  RecoverDeviceSelection.reset(AllocateZeroedArray<UINT8>(RecoverDeviceCount));
  RecoverAlgorithmSelection.reset(AllocateZeroedArray<UINT8>(RecoverAlgorithmCount));
  RecoverLines = AllocateZeroedArray<CHAR16*>(LineGrowth);
  if (!RecoverDeviceSelection || !RecoverAlgorithmSelection || RecoverLines == nullptr) return false;
  RecoverLineCapacity = LineGrowth;
  return true;
}

EFI_STATUS RecoveryRun::GrowRecoverLines() {
  CHAR16** Grown = AllocateZeroedArray<CHAR16*>(RecoverLineCapacity + LineGrowth);
  if (Grown == nullptr) return EFI_OUT_OF_RESOURCES;
  for (UINT64 I = 0; I < RecoverLineCount; ++I) Grown[I] = RecoverLines[I];
  gBS->FreePool(RecoverLines);
  RecoverLines = Grown;
  RecoverLineCapacity += LineGrowth;
  return EFI_SUCCESS;
}

EFI_STATUS RecoveryRun::StoreLine(const CHAR16* Text) {
  if (RecoverLines == nullptr) return EFI_NOT_READY;
  if (RecoverLineCount == RecoverLineCapacity) {
    const EFI_STATUS Status = GrowRecoverLines();
    if (EFI_ERROR(Status)) return Status;
  }
  CHAR16* Copy = nullptr;
  const EFI_STATUS Status = CopyTextToPool(Text, &Copy);
  if (EFI_ERROR(Status)) return Status;
  RecoverLines[RecoverLineCount++] = Copy;
  return EFI_SUCCESS;
}

VOID DrawRecoverScreen(RecoveryRun& Run) {
  const BOOLEAN Scrolls = Run.RecoverLineTotal > Run.RecoverVisibleLines;
  DrawScreenFrame(OrEmpty(Run.RecoverToolName), UiText(Scrolls ? ui_text::StopFooterScroll : ui_text::StopFooter));
  DrawPanelTitles(UiText(ui_text::InformationAboutRecover), UiText(ui_text::ResultsOfRecover));
  DrawRecoverInfo(Run, Run.LatestPercent, InfoDraw::Whole);
  DrawRecoverResults(Run, RecoverView::Running);
}

VOID DrawRecoverInfo(RecoveryRun& Run, UINT64 Percent, InfoDraw What) {
  BadSectorsToolProtocol* Tool = Run.Tool;
  const UINTN C = ScreenColumns();
  const UINTN X0 = InfoLeft();
  const UINTN XValue = C * 25 / 100;
  const UINTN BoxRight = InfoBoxRight();
  const UINT64 Rows = Tool->GetRunInfoRowCount(nullptr);
  if (What == InfoDraw::Whole) {
    SetColour(ui_colour::Band);
    DrawDoubleBox(X0 - 4, BoxRight, 4, ScreenRows() - 4);
  }
  // The rows take the box's colours, also when they are redrawn without it.
  SetColour(ui_colour::Screen);
  for (UINT64 R = 0; R < Rows; ++R) {
    CHAR16* Label = nullptr;
    CHAR16* Value = nullptr;
    Tool->GetRunInfoRow(nullptr, R, Run.ChosenToolDevice, &Label, &Value);
    const PoolPtr<CHAR16> OwnedLabel(Label), OwnedValue(Value);
    if (R < TrackedInfoRows) {
      const UINT64 Hash = HashRow(Label, Value);
      if (What == InfoDraw::Changes && Hash == Run.DrawnRowHashes[R]) continue;
      Run.DrawnRowHashes[R] = Hash;
    }
    PrintLabelledRow(OwnedLabel.get(), OwnedValue.get(), R + 5, X0, XValue, BoxRight);
  }
  if (What == InfoDraw::Whole) {
    CHAR16* Name = nullptr;
    Tool->GetAlgorithmName(nullptr, Run.ChosenToolAlgorithm, &Name);
    const PoolPtr<CHAR16> Operation(Name);
    MoveCursor(X0, Rows + 5);
    Print(u"%s: ", UiText(ui_text::Operation));
    const UINTN OperationEnd = PrintWithin(Operation.get(), Rows + 5, CursorColumn(), BoxRight);
    ClearRowSegment(Rows + 5, OperationEnd, BoxRight);
    PrintCentered(UiText(ui_text::ProgressOfOperation), Rows + 7, X0, X0 + 2 * (XValue - X0));
  }
  if (What == InfoDraw::Whole || static_cast<INT64>(Percent) != Run.DrawnPercent) {
    DrawProgressBar(Percent, Rows + 8);
    Run.DrawnPercent = static_cast<INT64>(Percent);
  }
}

VOID DrawRecoverResults(RecoveryRun& Run, RecoverView View) {
  const UINTN C = ScreenColumns();
  const UINTN X0 = C * 55 / 100;
  const UINTN X1 = X0 + C * 4 / 10;
  SetColour(ui_colour::Band);
  DrawDoubleBox(X0 - 4, X1 + 3, 4, ScreenRows() - 4);
  Run.RecoverLineTotal = Run.RecoverLineCount + 2 + (View == RecoverView::Final ? 3 : 0);
  Run.RecoverVisibleLines = ScreenRows() > 9 ? ScreenRows() - 9 : 0;
  const UINT64 Visible = Run.RecoverVisibleLines;
  const UINT64 Top = Run.RecoverScrollTop;
  UINT64 Line = 0;
  UINTN Row = 5;
  AddTimeLine(UiText(ui_text::RecoverStartedAt), Run.RecoverStartTime, Visible, Top, &Line, &Row, X0, X1 + 1);
  for (UINT64 I = 0; I < Run.RecoverLineCount; ++I)
    ScrolledLine(Visible, Top, &Line, &Row, X0, Run.RecoverLines[I], X1 + 1, LineMode::Finish);
  if (View == RecoverView::Final) {
    ScrolledLine(Visible, Top, &Line, &Row, X0, nullptr, X1 + 1, LineMode::Finish);
    AddTimeAndDurationLines(UiText(ui_text::RecoverFinishedAt), UiText(ui_text::DurationOfRecover),
                            Run.RecoverStartTime, Run.RecoverEndTime, Visible, Top, &Line, &Row, X0, X1 + 1);
  }
  DrawScrollBar(Run.RecoverLineTotal, Run.RecoverVisibleLines, Run.RecoverScrollTop, 5);
}

}  // namespace tarvik
