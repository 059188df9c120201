#include "ui/console_mode.h"

#include "core/globals.h"
#include "ui/ui_state.h"

namespace tarvik {


namespace {

struct ModeSize {
  BOOLEAN Found;
  UINTN Mode;
  UINTN Columns;
  UINTN Rows;
};

// Refused modes are kept as one bit per mode number; firmware offers a
// handful of modes, and the search for a fitting one ends at mode 64.
constexpr UINTN TrackedModes = 64;

BOOLEAN IsRefused(UINT64 Refused, UINTN Mode) { return Mode < TrackedModes && ((Refused >> Mode) & 1) != 0; }

// 100 x 31 when offered, otherwise the first mode larger in both dimensions
// than every mode before it; refused modes and modes that do not answer are
// left out.
ModeSize PreferredMode(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out, UINT64 Refused) {
  ModeSize Best = {FALSE, 0, 0, 0};
  for (INT32 Mode = 0; Mode < Out->Mode->MaxMode; ++Mode) {
    if (IsRefused(Refused, static_cast<UINTN>(Mode))) continue;
    UINTN Columns = 0;
    UINTN Rows = 0;
    if (EFI_ERROR(Out->QueryMode(Out, static_cast<UINTN>(Mode), &Columns, &Rows))) continue;
    const BOOLEAN Preferred = Columns == 100 && Rows == 31;
    if (Preferred || (Columns > Best.Columns && Rows > Best.Rows)) {
      Best = {TRUE, static_cast<UINTN>(Mode), Columns, Rows};
      if (Preferred) break;
    }
  }
  return Best;
}

// Whether the console, in the mode just set, puts the cursor in the mode's
// last column and row. A refusal shows as an error (while a console splitter
// may record the position all the same) or as a cursor that stayed where
// SetMode left it. The cursor goes back to (0, 0), where SetMode put it.
BOOLEAN ReachesLastCell(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out, const ModeSize& Size) {
  if (Size.Columns == 0 || Size.Rows == 0) return FALSE;
  const UINTN Column = Size.Columns - 1;
  const UINTN Row = Size.Rows - 1;
  const EFI_STATUS Status = Out->SetCursorPosition(Out, Column, Row);
  const BOOLEAN Reached = !EFI_ERROR(Status) && Out->Mode->CursorColumn == static_cast<INT32>(Column) &&
                          Out->Mode->CursorRow == static_cast<INT32>(Row);
  Out->SetCursorPosition(Out, 0, 0);
  return Reached;
}

// Sets the mode and checks that the whole of it can be addressed. A console
// splitter asked for the mode it is already in passes the request to none of
// its consoles, so a serial terminal behind it may still be 80 columns wide:
// going through mode 0 and back makes every console take the mode.
BOOLEAN SetWholeMode(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out, const ModeSize& Size) {
  if (EFI_ERROR(Out->SetMode(Out, Size.Mode))) return FALSE;
  if (ReachesLastCell(Out, Size)) return TRUE;
  if (Size.Mode == 0 || EFI_ERROR(Out->SetMode(Out, 0))) return FALSE;
  return !EFI_ERROR(Out->SetMode(Out, Size.Mode)) && ReachesLastCell(Out, Size);
}

VOID UseSize(const ModeSize& Size) {
  ScreenSize[0] = Size.Columns;
  ScreenSize[1] = Size.Rows;
}

}  // namespace

INT32 ChooseConsoleMode() {
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = gST->ConOut;
  ScreenSize[0] = 0;
  ScreenSize[1] = 0;
  const INT32 Found = Out->Mode->Mode;
  const ModeSize First = PreferredMode(Out, 0);
  if (!First.Found) {
    Out->SetMode(Out, 0);
    return Found;
  }
  UINT64 Refused = 0;
  for (ModeSize Size = First; Size.Found && Size.Mode < TrackedModes; Size = PreferredMode(Out, Refused)) {
    if (SetWholeMode(Out, Size)) {
      UseSize(Size);
      return Found;
    }
    Refused |= UINT64{1} << Size.Mode;
  }
  // No mode took its last cell, not even the 80 x 25 every console has: this
  // console's answers say nothing about what it shows, so the first choice
  // stands.
  Out->SetMode(Out, First.Mode);
  UseSize(First);
  return Found;
}

}  // namespace tarvik
