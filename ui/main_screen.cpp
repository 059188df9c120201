#include "ui/main_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "registry/module_registry_protocol.h"
#include "ui/key_input.h"
#include "ui/recovery_flow.h"
#include "ui/screen_toolkit.h"
#include "ui/system_info_screen.h"
#include "ui/run_flow.h"
#include "ui/ui_state.h"

namespace tarvik {

namespace {

struct PanelColumns {
  UINTN Left;   // where the entries' text starts
  UINTN Right;  // one past it; the box's right edge
};

PanelColumns PanelAt(UINT64 Panel) {
  const UINTN Left = ColumnsPercent(5) + (Panel == ToolsPanel ? ScreenColumns() / 2 : 0);
  return {Left, Left + ColumnsPercent(40)};
}

// " name" then blanks up to the panel's right edge, highlighted when it is
// the selection of the active panel. A name too long for the panel is cut.
VOID DrawEntry(const PanelColumns& Columns, UINTN Row, const CHAR16* Name, BOOLEAN Highlighted) {
  MoveCursor(Columns.Left, Row);
  SetColour(Highlighted ? ui_colour::Highlight : ui_colour::Screen);
  PutChar(u' ');
  const UINTN End = PrintWithin(Name, Row, Columns.Left + 1, Columns.Right);
  ClearRowSegment(Row, End, Columns.Right);
}

VOID DrawTestsPanel(const MainScreen& Screen) {
  const UINT64 Visible = Screen.VisibleRows;
  const UINT64 Selection = Screen.MainMenuSelection;
  const PanelColumns Columns = PanelAt(TestsPanel);
  DrawDoubleBox(Columns.Left - 1, Columns.Right, 4, Visible + 5);
  const UINT64 First = Selection < Visible ? 0 : Selection - Visible + 1;
  for (UINT64 Entry = First; Entry <= Screen.TestCount && Entry < First + Visible; ++Entry) {
    const BOOLEAN Highlighted = Screen.ActivePanel == TestsPanel && Entry == Selection;
    const UINTN Row = 5 + (Entry - First);
    if (Entry == Screen.TestCount) {
      DrawEntry(Columns, Row, UiText(ui_text::ExitApplication), Highlighted);
      continue;
    }
    TestModuleProtocol* Module = nullptr;
    CHAR16* Name = nullptr;
    if (!EFI_ERROR(UiTests->GetTest(Entry, &Module)) && Module != nullptr) Module->GetTestName(Module, &Name);
    DrawEntry(Columns, Row, Name, Highlighted);
    if (Name != nullptr) gBS->FreePool(Name);
  }
}

VOID DrawToolsPanel(const MainScreen& Screen) {
  const PanelColumns Columns = PanelAt(ToolsPanel);
  DrawDoubleBox(Columns.Left - 1, Columns.Right, 4, Screen.VisibleRows + 5);
  constexpr UINT64 ToolNames[] = {ui_text::SystemInformation, ui_text::RecoverBadSectorsTool};
  for (UINT64 Entry = 0; Entry < Screen.ToolCount && Entry < Screen.VisibleRows; ++Entry) {
    const BOOLEAN Highlighted = Screen.ActivePanel == ToolsPanel && Entry == Screen.MainMenuSelection;
    DrawEntry(Columns, 5 + Entry, UiText(ToolNames[Entry]), Highlighted);
  }
}

// Up and Down wrap round the active panel's entries.
VOID MoveSelection(MainScreen& Screen, BOOLEAN Up) {
  const UINT64 Last = Screen.ActivePanel == TestsPanel ? Screen.TestCount : Screen.ToolCount - 1;
  UINT64& Selection = Screen.MainMenuSelection;
  if (Up) {
    Selection = Selection == 0 ? Last : Selection - 1;
  } else {
    Selection = Selection >= Last ? 0 : Selection + 1;
  }
}

VOID SwitchPanel(MainScreen& Screen) {
  if (Screen.ActivePanel == TestsPanel) {
    Screen.ActivePanel = ToolsPanel;
    if (Screen.MainMenuSelection > Screen.ToolCount - 1) Screen.MainMenuSelection = Screen.ToolCount - 1;
  } else {
    Screen.ActivePanel = TestsPanel;
  }
}

VOID Choose(MainScreen& Screen) {
  if (Screen.ActivePanel == TestsPanel) {
    if (Screen.MainMenuSelection < UiTests->GetTestCount()) {
      RunTestFlow(Screen.MainMenuSelection);
    } else {
      Screen.ExitRequested = 1;
    }
  } else if (Screen.MainMenuSelection == 0) {
    ShowSystemInfo();
  } else {
    RecoveryToolFlow();
  }
  DrawMainScreen(Screen);
}

}  // namespace

VOID DrawMainPanels(const MainScreen& Screen) {
  DrawTestsPanel(Screen);
  DrawToolsPanel(Screen);
}

VOID DrawMainScreen(MainScreen& Screen) {
  const UINT64 Entries = Screen.TestCount + 1 > Screen.ToolCount ? Screen.TestCount + 1 : Screen.ToolCount;
  const UINT64 Room = ScreenRows() > 8 ? ScreenRows() - 8 : 0;
  Screen.VisibleRows = Entries < Room ? Entries : Room;
  DrawScreenFrame(UiText(ui_text::MainScreen), UiText(ui_text::MainFooter));
  DrawPanelTitles(UiText(ui_text::Tests), UiText(ui_text::Tools));
  DrawMainPanels(Screen);
}

VOID DispatchMainScreenKey(MainScreen& Screen, const EFI_INPUT_KEY& Key) {
  switch (Key.ScanCode) {
    case SCAN_UP:
    case SCAN_DOWN:
      MoveSelection(Screen, Key.ScanCode == SCAN_UP);
      DrawMainPanels(Screen);
      break;
    case SCAN_RIGHT:
    case SCAN_LEFT:
      SwitchPanel(Screen);
      DrawMainPanels(Screen);
      break;
    default:
      break;
  }
  if (Key.UnicodeChar == CharEnter) Choose(Screen);
}

}  // namespace tarvik
