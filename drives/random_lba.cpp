#include "drives/random_lba.h"

#include "core/globals.h"

namespace tarvik {
namespace {

constexpr UINT64 MaxRangeDraw = 0x7FFFFFFF;  // the generator's widest range, 0..2^31-1
constexpr UINT32 DrawBits = 31;
constexpr UINT32 MaxRedraws = 64;  // each fails with a chance of one half at most

}  // namespace

UINT32 TimeSeed(const EFI_TIME& Time) {
  const UINT32 S = Time.Second;
  UINT32 Seed = S;
  Seed = Seed << 6 | Time.Minute;
  Seed = Seed << 5 | Time.Hour;
  Seed = Seed << 4 | Time.Month;
  Seed = Seed << 5 | Time.Day;
  return Seed | (S - 4) << 26;
}

VOID SeedRandomFromTime(const DiagCommonProtocol& Common) {
  EFI_TIME Now = {};
  if (EFI_ERROR(gRT->GetTime(&Now, nullptr))) Now = {};
  Common.RandomInit(TimeSeed(Now));
}

UINT64 RandomUpTo(const DiagCommonProtocol& Common, UINT64 Max) {
  if (Max <= MaxRangeDraw) return (UINT64)(UINT32)Common.RandomRange(0, (INT32)Max);
  // A high part and 31 low bits; a pair beyond Max is drawn again (at least
  // half of all pairs fit), so every address is equally likely.
  const UINT64 HighMax = Max >> DrawBits;
  for (UINT32 Attempt = 0; Attempt < MaxRedraws; ++Attempt) {
    const UINT64 Value = RandomUpTo(Common, HighMax) << DrawBits | RandomUpTo(Common, MaxRangeDraw);
    if (Value <= Max) return Value;
  }
  return Max;
}

}  // namespace tarvik
