// System Information: the "Machine" tab from the SMBIOS tables, then one tab
// per test module that reports system-information rows. Tab, Right and Left
// change tabs, the cursor keys scroll a module tab, ESC goes back.
#pragma once

#include "efi/efi.h"

namespace tarvik {

extern UINT64 InfoTabCount;       // "Machine" plus the module tabs
extern UINT64 ActiveInfoTab;      // 0 "Machine", k >= 1 the k-th module tab
extern UINT64 FirstShownInfoTab;  // first tab drawn in the tab bar
extern UINT64 InfoTabBarLeft;
extern UINT64 InfoScrollTop;      // first shown line of a module tab
extern UINT64 InfoVisibleLines;
extern UINT64 InfoLineCount;      // lines of the tab on screen (0 for "Machine")
extern UINT8 InfoPartialRedraw;   // 1: only the lines changed (scrolling)
// Per module tab: its name, its lines (label and value column) and how many.
extern CHAR16** InfoTabNames;
extern CHAR16*** InfoLabels;
extern CHAR16*** InfoValues;
extern UINT64* InfoLineCounts;

VOID ShowSystemInfo();
// Shows the wait box and builds the module tabs.
VOID GatherSystemInfo();
// Frees what GatherSystemInfo built.
VOID ReleaseSystemInfo();
VOID DrawSystemInfo();
// 1 when an SMBIOS item the tab needs is missing (it stops drawing there).
UINT8 DrawMachineTab();
VOID DrawModuleTab(UINT64 Tab);

enum class TabDirection : UINT8 { Right = 0, Left = 1 };
// The first tab to show in the bar so that the active tab fits.
UINT64 FitInfoTabs(TabDirection Direction);

// Continuation lines a row needs when its label or value is wider than Width.
UINT64 WrapCount(const CHAR16* Label, const CHAR16* Value, UINT64 Width);
// Ends Text after its last space within Width characters and gives what
// followed in *Rest (a new 2048-byte pool buffer; empty when Text fits). A
// text with no space there is cut at Width.
VOID SplitAtSpace(CHAR16* Text, CHAR16** Rest, UINT64 Width);
// Prints Text at column From of the processor-version row, continuing on the
// next row when it is as wide as [From, To) or wider.
VOID PrintWrappedValue(const CHAR16* Text, UINTN From, UINTN To);

}  // namespace tarvik
