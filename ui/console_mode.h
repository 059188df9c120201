// The console mode the interface runs in.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// Sets 100 x 31 when
// the console offers it, otherwise the first mode larger in both dimensions
// than every mode before it (mode 0 when no mode answers). A mode whose last
// column and row the console refuses is passed over for the next best one
// (80 x 25 always works). ScreenSize gets the chosen size, or stays 0 x 0
// when no mode answered. Returns the mode the console was in, which the
// interface puts back on exit.
INT32 ChooseConsoleMode();

}  // namespace tarvik
