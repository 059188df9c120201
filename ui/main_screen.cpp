#include "ui/main_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "registry/test_collection_protocol.h"
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/system_info_screen.h"
#include "ui/test_run_screen.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit UINT64 TestCount = 0;
constinit UINT64 ToolCount = 1;
constinit UINT64 MainMenuSelection = 0;
constinit UINT64 ActivePanel = TestsPanel;
constinit UINT64 VisibleRows = 0;
constinit UINT8 ExitRequested = 0;
constinit EFI_EVENT ClockTimerEvent = nullptr;
constinit TestModuleProtocol* CurrentTest = nullptr;

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
  const INT32 Room = static_cast<INT32>(Columns.Right - Columns.Left) - 1;
  Print(u" %.*s", Room, Name != nullptr ? Name : u"");
  while (CursorColumn() < Columns.Right) PutChar(u' ');
}

VOID DrawTestsPanel() {
  const PanelColumns Columns = PanelAt(TestsPanel);
  DrawDoubleBox(Columns.Left - 1, Columns.Right, 4, VisibleRows + 5);
  const UINT64 First = MainMenuSelection < VisibleRows ? 0 : MainMenuSelection - VisibleRows + 1;
  for (UINT64 Entry = First; Entry <= TestCount && Entry < First + VisibleRows; ++Entry) {
    const BOOLEAN Highlighted = ActivePanel == TestsPanel && Entry == MainMenuSelection;
    const UINTN Row = 5 + (Entry - First);
    if (Entry == TestCount) {
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

VOID DrawToolsPanel() {
  const PanelColumns Columns = PanelAt(ToolsPanel);
  DrawDoubleBox(Columns.Left - 1, Columns.Right, 4, VisibleRows + 5);
  constexpr UINT64 ToolNames[] = {ui_text::SystemInformation, ui_text::RecoverBadSectorsTool};
  for (UINT64 Entry = 0; Entry < ToolCount && Entry < VisibleRows; ++Entry) {
    const BOOLEAN Highlighted = ActivePanel == ToolsPanel && Entry == MainMenuSelection;
    DrawEntry(Columns, 5 + Entry, UiText(ToolNames[Entry]), Highlighted);
  }
}

// Up and Down wrap round the active panel's entries.
VOID MoveSelection(BOOLEAN Up) {
  const UINT64 Last = ActivePanel == TestsPanel ? TestCount : ToolCount - 1;
  if (Up) {
    MainMenuSelection = MainMenuSelection == 0 ? Last : MainMenuSelection - 1;
  } else {
    MainMenuSelection = MainMenuSelection >= Last ? 0 : MainMenuSelection + 1;
  }
}

VOID SwitchPanel() {
  if (ActivePanel == TestsPanel) {
    ActivePanel = ToolsPanel;
    if (MainMenuSelection > ToolCount - 1) MainMenuSelection = ToolCount - 1;
  } else {
    ActivePanel = TestsPanel;
  }
}

VOID Choose() {
  if (ActivePanel == TestsPanel) {
    if (MainMenuSelection < UiTests->GetTestCount()) {
      RunTestFlow();
    } else {
      ExitRequested = 1;
    }
  } else if (MainMenuSelection == 0) {
    ShowSystemInfo();
  }
  // Entry 1 of the tools, the bad-sector recovery, opens its screens once
  // they exist; the main screen is redrawn either way.
  DrawMainScreen();
}

}  // namespace

VOID DrawMainPanels() {
  DrawTestsPanel();
  DrawToolsPanel();
}

VOID DrawMainScreen() {
  const UINT64 Entries = TestCount + 1 > ToolCount ? TestCount + 1 : ToolCount;
  const UINT64 Room = ScreenRows() > 8 ? ScreenRows() - 8 : 0;
  VisibleRows = Entries < Room ? Entries : Room;
  DrawScreenFrame(UiText(ui_text::MainScreen), UiText(ui_text::MainFooter));
  DrawPanelTitles(UiText(ui_text::Tests), UiText(ui_text::Tools));
  DrawMainPanels();
}

VOID DispatchMainScreenKey(const EFI_INPUT_KEY& Key) {
  switch (Key.ScanCode) {
    case SCAN_UP:
    case SCAN_DOWN:
      MoveSelection(Key.ScanCode == SCAN_UP);
      DrawMainPanels();
      break;
    case SCAN_RIGHT:
    case SCAN_LEFT:
      SwitchPanel();
      DrawMainPanels();
      break;
    default:
      break;
  }
  if (Key.UnicodeChar == CharEnter) Choose();
}

}  // namespace tarvik
