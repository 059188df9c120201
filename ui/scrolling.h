// What every scrollable list shares: writing one list line into an area
// that shows only part of the list, moving that part with the cursor keys,
// and the time between two clock readings.
#pragma once

#include "efi/efi.h"

namespace tarvik {

enum class LineMode : UINT8 {
  Finish = 0,     // pad to EndColumn and move on to the next line
  Continue = 1,   // more text follows on this line, no padding
  PadOnly = 2,    // pad to EndColumn, more text follows on this line
};

// Writes list line *Line (when Top <= *Line < Top + Visible) at (Column, *Row),
// cut at EndColumn with control characters as blanks (see PutOutsideText),
// padded with blanks up to EndColumn in modes Finish and PadOnly. Only Finish
// moves on: *Line + 1, and *Row + 1 when the line was shown. Text may be null.
VOID ScrolledLine(UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row, UINTN Column, const CHAR16* Text,
                  UINTN EndColumn, LineMode Mode);

// Moves *Top, the first shown of Total lines of which Visible fit, for Up,
// Down, Home, End, Page Up and Page Down. True when the caller must redraw.
BOOLEAN ScrollByKey(const EFI_INPUT_KEY& Key, UINT64* Top, UINT64 Total, UINT64 Visible);

// Hours, minutes and seconds from Start to End into those fields of
// Difference (its other fields are left alone). A span over midnight counts
// the hours round the clock.
VOID ElapsedTime(const EFI_TIME& Start, const EFI_TIME& End, EFI_TIME* Difference);

}  // namespace tarvik
