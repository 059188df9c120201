// The log of the last run as the log screen shows it: keys turned into the
// module's texts, time stamps formatted, resource groups indented, results
// coloured, all written into the scrollable area below the title rows.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// What the log screen and the log view share: the part of the view shown.
struct LogViewState {
  UINT64 LogScrollTop = 0;      // first shown display line
  UINT64 LogVisibleLines = 0;   // rows - 6
  UINT64 LogViewLineCount = 0;  // display lines of the current view, set by each drawing
};

// The log of a test run by the module at TestIndex of the registry.
EFI_STATUS DrawTestLogView(LogViewState& View, UINT64 TestIndex);
// The log of a recovery run, its lines shown as they are.
EFI_STATUS DrawRecoveryLogView(LogViewState& View);

}  // namespace tarvik
