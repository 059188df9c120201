// The System Information screen: its tab bar, the module tabs and the keys.
#include "ui/system_info_screen.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/wide_string.h"
#include "registry/module_registry_protocol.h"
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {

namespace {

const CHAR16* TabName(const SystemInfo& Info, UINT64 Tab) {
  if (Tab == 0) return UiText(ui_text::Machine);
  const CHAR16* Name = Info.InfoTabNames != nullptr ? Info.InfoTabNames[Tab - 1] : nullptr;
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
VOID PlaceTabBar(SystemInfo& Info) {
  UINT64 Width = 2 * Info.InfoTabCount + 6 + StrLen(UiText(ui_text::Machine));
  for (UINT64 Tab = 1; Tab < Info.InfoTabCount; ++Tab) Width += StrLen(TabName(Info, Tab));
  const UINT64 Columns = ScreenColumns();
  Info.InfoTabBarLeft = Columns >= 2 && Width <= Columns - 2 ? (Columns - Width) / 2 : 1;
}

VOID DrawTabBar(const SystemInfo& Info) {
  const UINTN Columns = ScreenColumns();
  MoveCursor(Info.InfoTabBarLeft, 3);
  SetColour(ui_colour::Screen);
  PutText(u"<- ");
  for (UINT64 Tab = Info.FirstShownInfoTab; Tab < Info.InfoTabCount; ++Tab) {
    const CHAR16* Name = TabName(Info, Tab);
    if (StrLen(Name) + CursorColumn() + 2 > Columns - 4) continue;
    SetColour(Tab == Info.ActiveInfoTab ? ui_colour::Highlight : ui_colour::Screen);
    Print(u" %s ", Name);
  }
  SetColour(ui_colour::Screen);
  PutText(u" ->");
  ClearRowSegment(3, CursorColumn(), Columns - 1);
}

}  // namespace

UINT64 FitInfoTabs(const SystemInfo& Info, TabDirection Direction) {
  const UINT64 Limit = ScreenColumns() >= 4 ? ScreenColumns() - 4 : 0;
  const UINT64 Active = Info.ActiveInfoTab;
  UINT64 First = Info.FirstShownInfoTab < Active ? Info.FirstShownInfoTab : Active;
  const auto WidthFrom = [&Info, Active](UINT64 From) {
    UINT64 Width = From == 0 ? 6 + StrLen(UiText(ui_text::Machine)) : 4;
    for (UINT64 Tab = From == 0 ? 1 : From; Tab <= Active; ++Tab) Width += StrLen(TabName(Info, Tab)) + 2;
    return Width;
  };
  UINT64 Width = WidthFrom(First);
  while (Width >= Limit && First < Active) Width = WidthFrom(++First);

  if (Direction == TabDirection::Left) return First > 0 && First == Active ? First - 1 : First;
  if (Active + 1 >= Info.InfoTabCount) return First;
  return Width + StrLen(TabName(Info, Active + 1)) + 2 >= Limit ? First + 1 : First;
}

VOID DrawModuleTab(SystemInfo& Info, UINT64 Tab) {
  const UINTN Columns = ScreenColumns();
  const UINTN Left = Columns * 15 / 100;
  const UINTN Right = Columns * 85 / 100;
  const UINTN ValueColumn = Columns / 2;
  if (Info.InfoPartialRedraw == 0) ClearArea(Left - 2, Columns, 5, ScreenRows() - 3);
  DrawDoubleBox(Left - 2, Right, 5, Info.InfoVisibleLines + 6);
  const UINT64 Index = Tab - 1;
  Info.InfoLineCount = Info.InfoLineCounts != nullptr ? Info.InfoLineCounts[Index] : 0;
  const UINT64 Visible = Info.InfoVisibleLines;
  const UINT64 Top = Info.InfoScrollTop;
  if (Info.InfoLineCount > Visible) DrawScrollBar(Info.InfoLineCount, Visible, Top, 6);
  if (Info.InfoLabels == nullptr || Info.InfoValues == nullptr || Info.InfoLabels[Index] == nullptr ||
      Info.InfoValues[Index] == nullptr)
    return;
  SetColour(ui_colour::Screen);
  UINT64 Line = 0;
  UINTN Row = 6;
  for (UINT64 I = 0; I < Info.InfoLineCount; ++I) {
    ScrolledLine(Visible, Top, &Line, &Row, Left, Info.InfoLabels[Index][I], Right, LineMode::PadOnly);
    ScrolledLine(Visible, Top, &Line, &Row, ValueColumn, Info.InfoValues[Index][I], Right, LineMode::Finish);
  }
}

VOID DrawSystemInfo(SystemInfo& Info) {
  DrawTabBar(Info);
  if (Info.ActiveInfoTab == 0) {
    DrawMachineTab(Info);
  } else {
    DrawModuleTab(Info, Info.ActiveInfoTab);
  }
}

VOID ShowSystemInfo() {
  DrawScreenFrame(UiText(ui_text::SystemInformation), UiText(ui_text::SystemInfoFooter));
  SystemInfo Info;
  Info.InfoTabCount = 1 + ModulesWithRows();
  Info.InfoVisibleLines = ScreenRows() > 10 ? ScreenRows() - 10 : 0;
  GatherSystemInfo(Info);
  PlaceTabBar(Info);
  DrawSystemInfo(Info);

  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (Key.ScanCode == ScanEscape) return;
    BOOLEAN Redraw = FALSE;
    if (Key.UnicodeChar == CharTab || Key.ScanCode == SCAN_RIGHT) {
      // Tab and Right both go to the next tab; the bar follows it.
      Info.ActiveInfoTab = Info.ActiveInfoTab + 1 >= Info.InfoTabCount ? 0 : Info.ActiveInfoTab + 1;
      Info.FirstShownInfoTab = FitInfoTabs(Info, TabDirection::Right);
      Redraw = TRUE;
    } else if (Key.ScanCode == SCAN_LEFT) {
      Info.ActiveInfoTab = Info.ActiveInfoTab == 0 ? Info.InfoTabCount - 1 : Info.ActiveInfoTab - 1;
      Info.FirstShownInfoTab = FitInfoTabs(Info, TabDirection::Left);
      Redraw = TRUE;
    }
    if (Redraw) {
      Info.InfoScrollTop = 0;
      Info.InfoPartialRedraw = 0;
      DrawSystemInfo(Info);
    }
    if (ScrollByKey(Key, &Info.InfoScrollTop, Info.InfoLineCount, Info.InfoVisibleLines)) {
      Info.InfoPartialRedraw = 1;
      DrawSystemInfo(Info);
    }
  }
}

}  // namespace tarvik
