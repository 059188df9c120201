// The log of the last run as the log screen shows it: keys turned into the
// module's texts, time stamps formatted, resource groups indented, results
// coloured, all written into the scrollable area below the title rows.
#pragma once

#include "efi/efi.h"

namespace tarvik {

extern UINT64 LogScrollTop;      // first shown display line
extern UINT64 LogVisibleLines;   // rows - 6
extern UINT64 LogViewLineCount;  // display lines of the current view

// The log of a test run by the module at TestIndex of the registry.
EFI_STATUS DrawTestLogView(UINT64 TestIndex);
// The log of a recovery run, its lines shown as they are.
EFI_STATUS DrawRecoveryLogView();

}  // namespace tarvik
