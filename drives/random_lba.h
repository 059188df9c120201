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

// A number in 0..Max, each equally likely. Up to 0x7FFFFFFF it is one
// RandomRange(0, Max) draw; beyond, draws of the high part and of the low 31
// bits are combined, never passing Max.
UINT64 RandomUpTo(const DiagCommonProtocol& Common, UINT64 Max);

}  // namespace tarvik
