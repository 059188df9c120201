// System Information: the "Machine" tab from the SMBIOS tables, then one tab
// per test module that reports system-information rows. Tab, Right and Left
// change tabs, the cursor keys scroll a module tab, ESC goes back.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// The screen's record, owned by ShowSystemInfo while the screen is open;
// its destructor frees the module tabs.
struct SystemInfo {
  SystemInfo() = default;
  ~SystemInfo() { Release(); }
  SystemInfo(const SystemInfo&) = delete;
  SystemInfo& operator=(const SystemInfo&) = delete;
  // Frees the module tabs (GatherSystemInfo builds them).
  VOID Release();

  UINT64 InfoTabCount = 1;       // "Machine" plus the module tabs
  UINT64 ActiveInfoTab = 0;      // 0 "Machine", k >= 1 the k-th module tab
  UINT64 FirstShownInfoTab = 0;  // first tab drawn in the tab bar
  UINT64 InfoTabBarLeft = 1;
  UINT64 InfoScrollTop = 0;      // first shown line of a module tab
  UINT64 InfoVisibleLines = 0;
  UINT64 InfoLineCount = 0;      // lines of the tab on screen (0 for "Machine")
  UINT8 InfoPartialRedraw = 0;   // 1: only the lines changed (scrolling)
  // Per module tab: its name, its lines (label and value column) and how many.
  CHAR16** InfoTabNames = nullptr;
  CHAR16*** InfoLabels = nullptr;
  CHAR16*** InfoValues = nullptr;
  UINT64* InfoLineCounts = nullptr;
};

VOID ShowSystemInfo();
// Shows the wait box and builds the module tabs of Info.InfoTabCount - 1
// modules; on exhausted pool Info keeps the "Machine" tab alone.
VOID GatherSystemInfo(SystemInfo& Info);
VOID DrawSystemInfo(SystemInfo& Info);
// 1 when an SMBIOS item the tab needs is missing (it stops drawing there).
UINT8 DrawMachineTab(SystemInfo& Info);
VOID DrawModuleTab(SystemInfo& Info, UINT64 Tab);

enum class TabDirection : UINT8 { Right = 0, Left = 1 };
// The first tab to show in the bar so that the active tab fits.
UINT64 FitInfoTabs(const SystemInfo& Info, TabDirection Direction);

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
