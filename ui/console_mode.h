// The console mode the interface runs in.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// The console's mode when the interface started; restored on exit.
extern INT32 SavedConsoleMode;

// Remembers the current mode in SavedConsoleMode, then sets 100 x 31 when
// the console offers it, otherwise the first mode larger in both dimensions
// than every mode before it (mode 0 when no mode answers). A mode whose last
// column and row the console refuses is passed over for the next best one
// (80 x 25 always works). ScreenSize gets the chosen size, or stays 0 x 0
// when no mode answered.
VOID ChooseConsoleMode();

}  // namespace tarvik
