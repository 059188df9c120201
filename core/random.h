// The shared pseudo-random generator: a multiply-with-carry generator of
// order four, one sequence for the whole application.
#pragma once

#include "efi/base.h"

namespace tarvik {

EFIAPI VOID RandomInit(UINT32 Seed);
EFIAPI UINT32 Random();
// Min..Max inclusive; Min when they are equal, 0x80000000 when Max < Min.
EFIAPI INT32 RandomRange(INT32 Min, INT32 Max);

}  // namespace tarvik
