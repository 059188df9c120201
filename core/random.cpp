#include "core/random.h"

namespace tarvik {
namespace {

struct GeneratorState {
  UINT32 X0, X1, X2, X3, Carry;
};
constinit GeneratorState State = {0, 0, 0, 0, 0};

}  // namespace

EFIAPI UINT32 Random() {
  UINT64 Sum = 2111111111ULL * State.X3 + 1492ULL * State.X2 + 1776ULL * State.X1 + 5115ULL * State.X0 +
               State.Carry;
  State.X3 = State.X2;
  State.X2 = State.X1;
  State.X1 = State.X0;
  State.Carry = (UINT32)(Sum >> 32);
  State.X0 = (UINT32)Sum;
  return State.X0;
}

EFIAPI VOID RandomInit(UINT32 Seed) {
  UINT32 S = Seed;
  UINT32* Words[] = {&State.X0, &State.X1, &State.X2, &State.X3, &State.Carry};
  for (UINT32* Word : Words) {
    S = S * 29943829U - 1U;
    *Word = S;
  }
  for (int I = 0; I < 19; ++I) Random();
}

EFIAPI INT32 RandomRange(INT32 Min, INT32 Max) {
  if (Max <= Min) return Max == Min ? Min : (INT32)0x80000000U;
  UINT64 Span = (UINT64)((INT64)Max - (INT64)Min + 1);
  UINT64 Offset = ((UINT64)Random() * Span) >> 32;
  return (INT32)((INT64)Min + (INT64)Offset);
}

}  // namespace tarvik
