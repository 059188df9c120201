// Random sector addresses for the seek tests, from the application's one
// shared generator (signed 32-bit ranges): wider ranges combine draws, so a
// drive of 2^31 sectors or more is covered end to end.
#pragma once

#include "core/diag_common.h"

namespace tarvik {

// The seek tests' seed from the time of day: second, minute, hour, month
// and day packed into 32 bits.
UINT32 TimeSeed(const EFI_TIME& Time);

// Seeds the shared generator from GetTime (a zero time when the clock fails).
VOID SeedRandomFromTime(const DiagCommonProtocol& Common);

// A number in 0..Max. Up to 0x7FFFFFFF it is one RandomRange(0, Max) draw;
// beyond, the high part is drawn first and the low 31 bits next, never
// passing Max.
UINT64 RandomUpTo(const DiagCommonProtocol& Common, UINT64 Max);

}  // namespace tarvik
