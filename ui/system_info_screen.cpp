// The System Information screen: its tab bar, the module tabs and the keys.
#include "ui/system_info_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/wide_string.h"
#include "registry/test_collection_protocol.h"
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit UINT64 InfoTabCount = 1;
constinit UINT64 ActiveInfoTab = 0;
constinit UINT64 FirstShownInfoTab = 0;
constinit UINT64 InfoTabBarLeft = 1;
constinit UINT64 InfoScrollTop = 0;
constinit UINT64 InfoVisibleLines = 0;
constinit UINT64 InfoLineCount = 0;
constinit UINT8 InfoPartialRedraw = 0;
constinit CHAR16** InfoTabNames = nullptr;
constinit CHAR16*** InfoLabels = nullptr;
constinit CHAR16*** InfoValues = nullptr;
constinit UINT64* InfoLineCounts = nullptr;

namespace {

const CHAR16* TabName(UINT64 Tab) {
  if (Tab == 0) return UiText(ui_text::Machine);
  const CHAR16* Name = InfoTabNames != nullptr ? InfoTabNames[Tab - 1] : nullptr;
  return Name != nullptr ? Name : u"";
}

UINT64 ModulesWithRows() {
  UINT64 Count = 0;
  const UINT64 Tests = UiTests->GetTestCount();
  for (UINT64 I = 0; I < Tests; ++I) {
    TestModuleProtocol* Module = nullptr;
    if (EFI_ERROR(UiTests->GetTest(I, &Module)) || Module == nullptr) continue;
    if (Module->GetSystemInfoRowCount(Module) > 0) ++Count;
  }
  return Count;
}

// Centred when the whole bar fits: the arrows, and " name " per tab.
VOID PlaceTabBar() {
  UINT64 Width = 2 * InfoTabCount + 6 + StrLen(UiText(ui_text::Machine));
  for (UINT64 Tab = 1; Tab < InfoTabCount; ++Tab) Width += StrLen(TabName(Tab));
  const UINT64 Columns = ScreenColumns();
  InfoTabBarLeft = Columns >= 2 && Width <= Columns - 2 ? (Columns - Width) / 2 : 1;
}

VOID DrawTabBar() {
  const UINTN Columns = ScreenColumns();
  MoveCursor(InfoTabBarLeft, 3);
  SetColour(ui_colour::Screen);
  PutText(u"<- ");
  for (UINT64 Tab = FirstShownInfoTab; Tab < InfoTabCount; ++Tab) {
    const CHAR16* Name = TabName(Tab);
    if (StrLen(Name) + CursorColumn() + 2 > Columns - 4) continue;
    SetColour(Tab == ActiveInfoTab ? ui_colour::Highlight : ui_colour::Screen);
    Print(u" %s ", Name);
  }
  SetColour(ui_colour::Screen);
  PutText(u" ->");
  ClearRowSegment(3, CursorColumn(), Columns - 1);
}

}  // namespace

UINT64 FitInfoTabs(TabDirection Direction) {
  const UINT64 Limit = ScreenColumns() >= 4 ? ScreenColumns() - 4 : 0;
  UINT64 First = FirstShownInfoTab < ActiveInfoTab ? FirstShownInfoTab : ActiveInfoTab;
  const auto WidthFrom = [](UINT64 From) {
    UINT64 Width = From == 0 ? 6 + StrLen(UiText(ui_text::Machine)) : 4;
    for (UINT64 Tab = From == 0 ? 1 : From; Tab <= ActiveInfoTab; ++Tab) Width += StrLen(TabName(Tab)) + 2;
    return Width;
  };
  UINT64 Width = WidthFrom(First);
  while (Width >= Limit && First < ActiveInfoTab) Width = WidthFrom(++First);

  if (Direction == TabDirection::Left) return First > 0 && First == ActiveInfoTab ? First - 1 : First;
  if (ActiveInfoTab + 1 >= InfoTabCount) return First;
  return Width + StrLen(TabName(ActiveInfoTab + 1)) + 2 >= Limit ? First + 1 : First;
}

VOID DrawModuleTab(UINT64 Tab) {
  const UINTN Columns = ScreenColumns();
  const UINTN Left = Columns * 15 / 100;
  const UINTN Right = Columns * 85 / 100;
  const UINTN ValueColumn = Columns / 2;
  if (InfoPartialRedraw == 0) ClearArea(Left - 2, Columns, 5, ScreenRows() - 3);
  DrawDoubleBox(Left - 2, Right, 5, InfoVisibleLines + 6);
  const UINT64 Index = Tab - 1;
  InfoLineCount = InfoLineCounts != nullptr ? InfoLineCounts[Index] : 0;
  if (InfoLineCount > InfoVisibleLines) DrawScrollBar(InfoLineCount, InfoVisibleLines, InfoScrollTop, 6);
  if (InfoLabels == nullptr || InfoValues == nullptr || InfoLabels[Index] == nullptr ||
      InfoValues[Index] == nullptr)
    return;
  SetColour(ui_colour::Screen);
  UINT64 Line = 0;
  UINTN Row = 6;
  for (UINT64 I = 0; I < InfoLineCount; ++I) {
    ScrolledLine(InfoVisibleLines, InfoScrollTop, &Line, &Row, Left, InfoLabels[Index][I], Right - 1,
                 LineMode::PadOnly);
    ScrolledLine(InfoVisibleLines, InfoScrollTop, &Line, &Row, ValueColumn, InfoValues[Index][I], Right - 1,
                 LineMode::Finish);
  }
}

VOID DrawSystemInfo() {
  DrawTabBar();
  if (ActiveInfoTab == 0) {
    DrawMachineTab();
  } else {
    DrawModuleTab(ActiveInfoTab);
  }
}

VOID ShowSystemInfo() {
  DrawScreenFrame(UiText(ui_text::SystemInformation), UiText(ui_text::SystemInfoFooter));
  InfoTabCount = 1 + ModulesWithRows();
  InfoScrollTop = 0;
  ActiveInfoTab = 0;
  FirstShownInfoTab = 0;
  InfoPartialRedraw = 0;
  InfoLineCount = 0;
  InfoVisibleLines = ScreenRows() > 10 ? ScreenRows() - 10 : 0;
  GatherSystemInfo();
  PlaceTabBar();
  DrawSystemInfo();

  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (Key.ScanCode == ScanEscape) break;
    BOOLEAN Redraw = FALSE;
    if (Key.UnicodeChar == CharTab || Key.ScanCode == SCAN_RIGHT) {
      // Tab and Right both go to the next tab; the bar follows it.
      ActiveInfoTab = ActiveInfoTab + 1 >= InfoTabCount ? 0 : ActiveInfoTab + 1;
      FirstShownInfoTab = FitInfoTabs(TabDirection::Right);
      Redraw = TRUE;
    } else if (Key.ScanCode == SCAN_LEFT) {
      ActiveInfoTab = ActiveInfoTab == 0 ? InfoTabCount - 1 : ActiveInfoTab - 1;
      FirstShownInfoTab = FitInfoTabs(TabDirection::Left);
      Redraw = TRUE;
    }
    if (Redraw) {
      InfoScrollTop = 0;
      InfoPartialRedraw = 0;
      DrawSystemInfo();
    }
    if (ScrollByKey(Key, &InfoScrollTop, InfoLineCount, InfoVisibleLines)) {
      InfoPartialRedraw = 1;
      DrawSystemInfo();
    }
  }
  ReleaseSystemInfo();
}

}  // namespace tarvik
