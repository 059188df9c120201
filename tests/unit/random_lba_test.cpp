// Random sector addresses: the time seed, and ranges wider than the shared
// generator's 31 bits covered by combined draws that never leave the range.
#include "drives/random_lba.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "core/random.h"

namespace {

tarvik::DiagCommonProtocol generator() {
  tarvik::DiagCommonProtocol common{};
  common.Random = tarvik::Random;
  common.RandomRange = tarvik::RandomRange;
  common.RandomInit = tarvik::RandomInit;
  return common;
}

TEST(RandomLba, TimeSeedPacksTheClockFields) {
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 6, 21, 10, 15, 30, 0, 0, 0, 0, 0}), 0x69E3D4D5u);
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 12, 31, 23, 59, 59, 0, 0, 0, 0, 0}), 0xDFBEEF9Fu);
  // Seconds below 4 wrap in the top bits.
  EXPECT_EQ(tarvik::TimeSeed(EFI_TIME{2026, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}), 0xF0000021u);
}

TEST(RandomLba, NarrowRangesAreOneDrawOfTheGenerator) {
  const tarvik::DiagCommonProtocol common = generator();
  for (UINT64 max : {UINT64{0}, UINT64{999}, UINT64{0x7FFFFFFF}}) {
    tarvik::RandomInit(77);
    std::vector<INT32> expected;
    for (int i = 0; i < 50; ++i) expected.push_back(tarvik::RandomRange(0, static_cast<INT32>(max)));
    tarvik::RandomInit(77);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(tarvik::RandomUpTo(common, max), static_cast<UINT64>(expected[i])) << max;
  }
}

TEST(RandomLba, WideRangesReachTheirWholeSpanAndNeverPassTheEnd) {
  const tarvik::DiagCommonProtocol common = generator();
  // 2^31 sectors (the first size the generator cannot name), a 2 TiB drive
  // (2^32 sectors, whose size does not fit 32 bits), 2^48 sectors, and the
  // widest value IDENTIFY can claim.
  for (UINT64 max : {UINT64{0x80000000}, UINT64{0xFFFFFFFF}, (UINT64{1} << 48) - 1, UINT64{UINT64_MAX}}) {
    tarvik::RandomInit(2024);
    UINT64 highest = 0;
    for (int i = 0; i < 20000; ++i) {
      const UINT64 v = tarvik::RandomUpTo(common, max);
      ASSERT_LE(v, max);
      highest = std::max(highest, v);
    }
    EXPECT_GT(highest, max - max / 500) << max;
  }
  // Every address is as likely as any other, also when the range's top
  // 31-bit block is nearly empty (here 2^32 + 5 addresses).
  tarvik::RandomInit(5);
  int upper_half = 0;
  for (int i = 0; i < 20000; ++i) upper_half += tarvik::RandomUpTo(common, (1ull << 32) + 4) > (1ull << 31) + 2;
  EXPECT_NEAR(upper_half, 10000, 400);
}

}  // namespace
