// The recovery flow behind "Recover Bad Sectors Tool": one drive and one
// operation of the bad-sector tool, its run with progress, lines and
// questions, the final view with its times, and the recovery log.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// EFI_ABORTED when the tool is not installed (nothing drawn); otherwise the
// flow runs to its end and the caller redraws its own screen.
EFI_STATUS RecoveryToolFlow();

// The tool's callbacks; they draw nothing and keep nothing outside the flow.
EFIAPI EFI_STATUS RecoverProgressCallback(VOID* Context, UINT64 Percent, UINT64 Reserved);
EFIAPI EFI_STATUS RecoverMessageCallback(VOID* Context, const CHAR16* Text, UINT8 Kind, UINT64 Extra);

}  // namespace tarvik
