#include "ui/recovery_flow.h"

#include "core/globals.h"
#include "core/locate.h"
#include "core/periodic_timer.h"
#include "core/raised_tpl.h"
#include "ui/flow_binding.h"
#include "ui/key_input.h"
#include "ui/log_screen.h"
#include "ui/recovery_screen.h"
#include "ui/screen_toolkit.h"
#include "ui/selection_screen.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 KeyPollPeriod = 5000000;    // 0.5 s in 100 ns units
constexpr UINT64 SpinnerPeriod = 20000000;   // 2 s
constexpr UINT64 ProgressDrawPeriod = 1000000;  // 0.1 s: at most ten progress draws a second

// The tool's message kinds as the screen answers them.
enum class RecoverMessage : UINT8 { Warning = 1, Confirmation = 2, Line = 3, Question = 4 };

// The running flow, for the timer notifications and the tool's callbacks.
constinit RecoveryRun* ActiveRecovery = nullptr;

EFIAPI VOID RecoverKeyPoll(EFI_EVENT, VOID*) {
  RecoveryRun* Run = ActiveRecovery;
  // An open box reads its own keys.
  if (Run == nullptr || Run->RecoverDialogOpen == 1) return;
  EFI_INPUT_KEY Key = {0, 0};
  if (EFI_ERROR(gST->ConIn->ReadKeyStroke(gST->ConIn, &Key))) return;
  if (Key.ScanCode == ScanEscape) Run->Tool->CancelTool(nullptr);
  if (ScrollByKey(Key, &Run->RecoverScrollTop, Run->RecoverLineTotal, Run->RecoverVisibleLines)) {
    const ConsoleStateKeeper Kept;  // the left panel may be half drawn
    DrawRecoverResults(*Run, RecoverView::Running);
  }
}

EFIAPI VOID RecoverSpinnerTick(EFI_EVENT, VOID*) {
  RecoveryRun* Run = ActiveRecovery;
  if (Run != nullptr && Run->RecoverDialogOpen == 0) StepSpinner(Run->RecoverSpinnerRow, &Run->RecoverSpinnerState);
}

EFIAPI VOID RecoverDrawTick(EFI_EVENT, VOID*) {
  RecoveryRun* Run = ActiveRecovery;
  if (Run != nullptr) Run->ProgressDrawDue = 1;
}

// A box of the tool over the run screen; the spinner holds still meanwhile.
EFI_STATUS AskInBox(RecoveryRun& Run, const CHAR16* Text, MessageBoxType Type) {
  Run.RecoverDialogOpen = 1;
  const EFI_STATUS Answer = ShowMessageBox(Text, static_cast<UINT8>(Type));
  Run.RecoverDialogOpen = 0;
  return Answer;
}

// The tool's callbacks draw at TPL_NOTIFY: the key poll, which scrolls the
// right panel, must not move the cursor in the middle of their drawing.
VOID RedrawScreen(RecoveryRun& Run) {
  const RaisedTpl NoKeyPoll(TPL_NOTIFY);
  DrawRecoverScreen(Run);
}

// The times, scrolling and F3 once the tool has finished.
VOID ShowFinalView(RecoveryRun& Run) {
  if (Run.RecoverLineTotal > Run.RecoverVisibleLines) Run.RecoverScrollTop += 3;
  DrawRecoverResults(Run, RecoverView::Final);
  const BOOLEAN Scrolls = Run.RecoverLineTotal > Run.RecoverVisibleLines;
  DrawFooter(UiText(Scrolls ? ui_text::OutcomeFooterScroll : ui_text::OutcomeFooter));
  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (ScrollByKey(Key, &Run.RecoverScrollTop, Run.RecoverLineTotal, Run.RecoverVisibleLines))
      DrawRecoverResults(Run, RecoverView::Final);
    if (Key.ScanCode == ScanEscape) return;
    if (Key.ScanCode == SCAN_F3) {
      ShowRecoveryLogScreen(Run.RecoverLineCount, Run.RecoverLines, Run.ChosenToolAlgorithm, &Run.RecoverStartTime,
                            &Run.RecoverEndTime);
      return;
    }
  }
}

UINT64 FirstChosen(const UINT8* Selection, UINT64 Count) {
  for (UINT64 I = 0; I < Count; ++I)
    if (Selection[I] == 1) return I;
  return 0;
}

VOID RunToolAndShowFinalView(RecoveryRun& Run) {
  BadSectorsToolProtocol* Tool = Run.Tool;
  Run.RecoverSpinnerRow = Tool->GetRunInfoRowCount(nullptr) + 8;
  Run.RecoverVisibleLines = ScreenRows() > 9 ? ScreenRows() - 9 : 0;
  Run.RecoverLineTotal = 2;
  // Taken before the first drawing, which shows it.
  gRT->GetTime(&Run.RecoverStartTime, nullptr);
  DrawRecoverScreen(Run);
  {
    PeriodicTimer KeyPoll, Spinner, ProgressDraw;
    KeyPoll.StartNotifying(TPL_NOTIFY, RecoverKeyPoll, nullptr, KeyPollPeriod);
    Spinner.StartNotifying(TPL_NOTIFY, RecoverSpinnerTick, nullptr, SpinnerPeriod);
    ProgressDraw.StartNotifying(TPL_NOTIFY, RecoverDrawTick, nullptr, ProgressDrawPeriod);
    // The tool's outcome shows in its lines and boxes, not as a status.
    Tool->RunTool(nullptr, Run.ChosenToolAlgorithm, Run.ChosenToolDevice, RecoverProgressCallback,
                  RecoverMessageCallback);
    gRT->GetTime(&Run.RecoverEndTime, nullptr);
  }
  ClearSpinner(Run.RecoverSpinnerRow);
  if (Run.RecoverDeclined != 0) return;
  // The last report may have come between two draws.
  DrawRecoverInfo(Run, Run.LatestPercent, InfoDraw::Changes);
  ShowFinalView(Run);
}

}  // namespace

EFIAPI EFI_STATUS RecoverProgressCallback(VOID*, UINT64 Percent, UINT64) {
  RecoveryRun* Run = ActiveRecovery;
  if (Run == nullptr) return EFI_SUCCESS;
  Run->LatestPercent = Percent > 100 ? 100 : Percent;
  if (Run->ProgressDrawDue == 1 || (Run->LatestPercent == 100 && Run->DrawnPercent != 100)) {
    Run->ProgressDrawDue = 0;
    const RaisedTpl NoKeyPoll(TPL_NOTIFY);
    DrawRecoverInfo(*Run, Run->LatestPercent, InfoDraw::Changes);
  }
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS RecoverMessageCallback(VOID*, const CHAR16* Text, UINT8 Kind, UINT64) {
  RecoveryRun* Run = ActiveRecovery;
  if (Run == nullptr) return EFI_SUCCESS;
  const CHAR16* Shown = Text != nullptr ? Text : u"";
  switch (static_cast<RecoverMessage>(Kind)) {
    case RecoverMessage::Warning:
    case RecoverMessage::Confirmation: {
      const EFI_STATUS Answer =
          AskInBox(*Run, Shown,
                   static_cast<RecoverMessage>(Kind) == RecoverMessage::Warning ? MessageBoxType::Notice
                                                                                 : MessageBoxType::Question);
      if (Answer == EFI_SUCCESS) {
        RedrawScreen(*Run);
      } else {
        Run->RecoverDeclined = 1;
      }
      return Answer;
    }
    case RecoverMessage::Question: {
      const EFI_STATUS Answer = AskInBox(*Run, Shown, MessageBoxType::Question);
      RedrawScreen(*Run);
      return Answer;
    }
    case RecoverMessage::Line: {
      // A line the pool has no room for is dropped; the run goes on.
      if (EFI_ERROR(Run->StoreLine(Shown))) return EFI_SUCCESS;
      const RaisedTpl NoKeyPoll(TPL_NOTIFY);
      if (Run->RecoverLineTotal + 1 > Run->RecoverVisibleLines) {
        DrawFooter(UiText(ui_text::StopFooterScroll));
        // The view follows the newest line while it shows the bottom.
        if (Run->RecoverScrollTop + Run->RecoverVisibleLines >= Run->RecoverLineTotal) ++Run->RecoverScrollTop;
      }
      DrawRecoverResults(*Run, RecoverView::Running);
      return EFI_SUCCESS;
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS RecoveryToolFlow() {
  auto* Tool = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid);
  if (Tool == nullptr) return EFI_ABORTED;
  RecoveryRun Run;
  Run.Tool = Tool;
  const FlowBinding<RecoveryRun> Bound(ActiveRecovery, Run);
  CHAR16* Name = nullptr;
  Tool->GetToolName(nullptr, &Name);
  Run.RecoverToolName.reset(Name);
  const CHAR16* Title = Run.RecoverToolName ? Run.RecoverToolName.get() : u"";
  Run.RecoverDeviceCount = Tool->GetDeviceCount(Tool);
  Run.RecoverAlgorithmCount = Tool->GetAlgorithmCount(Tool);
  if (Run.RecoverDeviceCount == 0 || Run.RecoverAlgorithmCount == 0) return EFI_SUCCESS;
  if (!Run.SetUp()) return EFI_OUT_OF_RESOURCES;

  UINT64 Chosen = 1;
  if (SelectionScreen(nullptr, Title, Run.RecoverDeviceCount, &Chosen, Run.RecoverDeviceSelection.get(),
                      SelectionKind::ToolDevices, ChoiceMode::One) != EFI_SUCCESS)
    return EFI_SUCCESS;
  if (SelectionScreen(nullptr, Title, Run.RecoverAlgorithmCount, &Chosen, Run.RecoverAlgorithmSelection.get(),
                      SelectionKind::ToolAlgorithms, ChoiceMode::One) != EFI_SUCCESS)
    return EFI_SUCCESS;
  Run.ChosenToolDevice = FirstChosen(Run.RecoverDeviceSelection.get(), Run.RecoverDeviceCount);
  Run.ChosenToolAlgorithm = FirstChosen(Run.RecoverAlgorithmSelection.get(), Run.RecoverAlgorithmCount);
  RunToolAndShowFinalView(Run);
  return EFI_SUCCESS;
}

}  // namespace tarvik
