// What the repair writes over a sector the drive could not read: a text a
// technician recognises when looking at the sector later.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// "BAD_SECTOR_REPAIRED_" repeated to 255 UTF-16 characters (the last
// repetition cut after "BAD_SECTOR_REPA") and its NUL: 512 bytes.
inline constexpr UINTN RepairPatternBytes = 512;

// Fills Size bytes of Buffer with the pattern, repeated as often as it takes
// (a drive's logical sector may be larger than 512 bytes).
VOID FillRepairPattern(UINT8* Buffer, UINTN Size);

}  // namespace tarvik
