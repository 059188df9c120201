#include "ui/scrolling.h"

#include "ui/ui_state.h"

namespace tarvik {

VOID ScrolledLine(UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row, UINTN Column, const CHAR16* Text,
                  UINTN EndColumn, LineMode Mode) {
  const BOOLEAN Shown = *Line >= Top && *Line < Top + Visible;
  if (Shown) {
    MoveCursor(Column, *Row);
    PutOutsideText(Text, EndColumn > Column ? EndColumn - Column : 0);
    if (Mode != LineMode::Continue) {
      const UINTN At = CursorColumn();
      if (At < EndColumn) PutBlanks(EndColumn - At);
    }
  }
  if (Mode == LineMode::Finish) {
    ++*Line;
    if (Shown) ++*Row;
  }
}

BOOLEAN ScrollByKey(const EFI_INPUT_KEY& Key, UINT64* Top, UINT64 Total, UINT64 Visible) {
  const UINT64 LastTop = Total > Visible ? Total - Visible : 0;
  const UINT64 Page = Visible > 0 ? Visible - 1 : 0;
  switch (Key.ScanCode) {
    case SCAN_UP:
      if (*Top == 0) return FALSE;
      --*Top;
      return TRUE;
    case SCAN_DOWN:
      if (*Top + Visible >= Total) return FALSE;
      ++*Top;
      return TRUE;
    case SCAN_HOME:
      *Top = 0;
      return TRUE;
    case SCAN_END:
      *Top = LastTop;
      return TRUE;
    case SCAN_PAGE_UP:
      *Top = *Top < Page ? 0 : *Top - Page;
      return TRUE;
    case SCAN_PAGE_DOWN:
      *Top = *Top + Page < LastTop ? *Top + Page : LastTop;
      return TRUE;
    default:
      return FALSE;
  }
}

VOID ElapsedTime(const EFI_TIME& Start, const EFI_TIME& End, EFI_TIME* Difference) {
  INT32 Seconds = static_cast<INT32>(End.Second) - Start.Second;
  INT32 Borrow = 0;
  if (Seconds < 0) {
    Seconds += 60;
    Borrow = 1;
  }
  INT32 Minutes = static_cast<INT32>(End.Minute) - Borrow - Start.Minute;
  Borrow = 0;
  if (Minutes < 0) {
    Minutes += 60;
    Borrow = 1;
  }
  INT32 Hours = static_cast<INT32>(End.Hour) - Borrow - Start.Hour;
  if (Hours < 0) Hours += 24;
  Difference->Hour = static_cast<UINT8>(Hours);
  Difference->Minute = static_cast<UINT8>(Minutes);
  Difference->Second = static_cast<UINT8>(Seconds);
}

}  // namespace tarvik
