// Random sector addresses: the time seed, and ranges wider than the shared
// generator's 31 bits covered by combined draws that never leave the range.
// How evenly a drive is covered is RandomSeekTest's to check.
#include "drives/random_lba.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "core/random.h"

namespace {

TEST(RandomLba, TimeSeedPacksTheClockFields) {
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 6, 21, 10, 15, 30, 0, 0, 0, 0, 0}), 0x69E3D4D5u);
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 12, 31, 23, 59, 59, 0, 0, 0, 0, 0}), 0xDFBEEF9Fu);
  // Seconds below 4 wrap in the top bits.
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}), 0xF0000021u);
}

TEST(RandomLba, WideRangesReachTheirWholeSpanAndNeverPassTheEnd) {
  tarvik::DiagCommonProtocol common{};
  common.Random = tarvik::Random;
  common.RandomRange = tarvik::RandomRange;
  common.RandomInit = tarvik::RandomInit;
  // A range of one address, a 2 TiB drive (2^32 sectors, whose size does not
  // fit 32 bits), 2^48 sectors, and the widest value IDENTIFY can claim.
  for (UINT64 max : {UINT64{0}, UINT64{0xFFFFFFFF}, (UINT64{1} << 48) - 1, UINT64{UINT64_MAX}}) {
    tarvik::RandomInit(2024);
    UINT64 highest = 0;
    for (int i = 0; i < 20000; ++i) {
      const UINT64 v = tarvik::RandomUpTo(common, max);
      ASSERT_LE(v, max);
      highest = std::max(highest, v);
    }
    EXPECT_GE(highest, max - max / 500) << max;
  }
}

}  // namespace
