// The check-box list on which the technician chooses devices and algorithms
// before a test or the bad-sector tool runs.
#pragma once

#include "efi/efi.h"

namespace tarvik {

enum class SelectionKind : UINT8 {
  TestDevices = 0,
  TestAlgorithms = 1,
  ToolDevices = 2,
  ToolAlgorithms = 3,
};

enum class ChoiceMode : UINT8 {
  Several = 0,  // check boxes and a "Select/deselect all" line
  One = 1,      // exactly one entry chosen
};

// What the "Select/deselect all" line shows.
enum class AllState : UINT64 { All = 0, None = 1, Some = 2 };

// The list shows at most this many entries (its count is a signed byte).
inline constexpr UINT64 MaxSelectionEntries = 127;

// Presets Selection (every entry for several choices, the first for one),
// then lets the technician edit it. Module is the test module's record for
// the test kinds and ignored for the tool kinds (the tool's operations take
// a null record). EFI_SUCCESS when confirmed (*SelectedCount = entries
// chosen) or when there was only one entry (no screen, *SelectedCount left
// alone); EFI_ABORTED on ESC.
EFI_STATUS SelectionScreen(VOID* Module, const CHAR16* Title, UINT64 Count, UINT64* SelectedCount,
                           UINT8* Selection, SelectionKind Kind, ChoiceMode Mode);

// Draws the list under Header and runs its key loop.
EFI_STATUS CheckBoxList(const CHAR16* Header, const CHAR16* Confirm, UINT64 Count, CHAR16* const* Names,
                        UINT8* Selection, UINT64* SelectedCount, ChoiceMode Mode);

// Applies one key to the list: moves *Cursor over the LineCount lines
// (never onto a blank one), ticks entries, confirms (*Running = 0). ESC
// gives EFI_ABORTED.
EFI_STATUS CheckBoxKey(const EFI_INPUT_KEY& Key, UINT64* Cursor, UINT64 LineCount, UINT64 Count, ChoiceMode Mode,
                       UINT8* Selection, AllState* All, UINT8* Running, UINT64* SelectedCount);

}  // namespace tarvik
