// Random and funnel seek on simulated drives: where they read, how many
// commands, progress, the first unreadable sector, drives too wide for the
// generator's 31 bits and tiny drives; and the surface tests on a drive that
// reports no capacity. A stop request is the storage module's test.
#include "storage/seek_tests.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "storage/targeted_read.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using storage_bench::Bench;
using testing_support::AtaInterposer;
using Lines = std::vector<std::string>;

UINT64 random_seek(Bench& bench) { return tarvik::RandomSeekTest(bench.run, bench.device(0), bench.common()); }
UINT64 funnel_seek(Bench& bench) { return tarvik::FunnelSeekTest(bench.run, bench.device(0), bench.common()); }

// From a drive smaller than the progress steps to ones past 2^31 and 2^32
// sectors: 5000 reads, all on the drive, the far end reached, half of them
// in the upper half.
TEST(RandomSeekTest, FiveThousandReadsCoverDrivesOfEverySize) {
  for (uint64_t sectors : {1000ull, 1ull << 31, (1ull << 32) + 5, 3ull << 40}) {
    Bench bench({storage_bench::drive(0, sectors)});
    AtaInterposer wire(bench.device(0));
    EXPECT_EQ(random_seek(bench), tarvik::TEST_RESULT_PASSED) << sectors;
    const auto lbas = wire.read_lbas();
    ASSERT_EQ(lbas.size(), 5000u);
    const uint64_t highest = *std::max_element(lbas.begin(), lbas.end());
    EXPECT_LT(highest, sectors);
    EXPECT_GT(highest, sectors / 100 * 99) << "the far end is reached";
    const auto upper = std::count_if(lbas.begin(), lbas.end(), [&](uint64_t l) { return l >= sectors / 2; });
    EXPECT_NEAR(static_cast<double>(upper), 2500.0, 250.0) << sectors;
    ASSERT_EQ(bench.progress.size(), 5002u);
    EXPECT_EQ(bench.progress[bench.progress.size() - 2], 99u);
    EXPECT_EQ(bench.progress.back(), 100u);
    EXPECT_TRUE(bench.lines.empty());
  }
}

TEST(SeekTests, ADriveReportingNoCapacityCannotBeSurfaceTested) {
  Bench bench({storage_bench::drive(0, 100000)});
  bench.device(0).Info->TotalSectors = 0;  // a drive without the 48-bit feature set
  AtaInterposer wire(bench.device(0));
  EXPECT_EQ(random_seek(bench), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(funnel_seek(bench), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(tarvik::TargetedReadTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(bench.lines, Lines(3, "WARNING CANT_PERFORM_TEST"));
  EXPECT_TRUE(wire.commands.empty());
}

TEST(FunnelSeekTest, ReadsCloseInFromBothEndsThenTheLastAndFirstSector) {
  const uint64_t sectors = 10000000;
  Bench bench({storage_bench::drive(0, sectors)});
  AtaInterposer wire(bench.device(0));
  EXPECT_EQ(funnel_seek(bench), tarvik::TEST_RESULT_PASSED);
  const auto& lbas = wire.read_lbas();
  ASSERT_GE(lbas.size(), 1850u);
  EXPECT_LE(lbas.size(), 1960u);
  EXPECT_EQ(wire.commands[0].block.AtaSectorCount, 100u);  // the first 100 sectors in one command
  EXPECT_EQ(lbas[0], 0u);
  EXPECT_EQ(lbas[1], 0u);  // then the low end alone: the high end is read last
  EXPECT_EQ(lbas[lbas.size() - 2], sectors - 1);
  EXPECT_EQ(lbas.back(), 0u);
  // Between, pairs mirrored about the drive's middle, the low end climbing by
  // one to two steps of 0.07 %.
  const uint64_t step = (sectors - 1) * 7 / 10000;
  for (size_t i = 2; i + 3 < lbas.size(); i += 2) {
    EXPECT_EQ(lbas[i] + lbas[i + 1], sectors - 1) << i;
    const uint64_t advance = lbas[i] - lbas[i - 2 + (i == 2 ? 1 : 0)];
    EXPECT_GE(advance, step) << i;
    EXPECT_LE(advance, 2 * step) << i;
  }
  EXPECT_TRUE(std::is_sorted(bench.progress.begin(), bench.progress.end()));
  EXPECT_EQ(bench.progress.back(), 100u);
  EXPECT_TRUE(bench.lines.empty());
}

// The first unreadable sector ends either test with its line: an unreadable
// start of the funnel is its first command (100 sectors at once), named LBA 0.
TEST(SeekTests, TheFirstUnreadableSectorEndsTheTest) {
  const struct {
    const char* name;
    UINT64 (*run)(Bench&);
    uint64_t sectors;
    hostfw::BadSectorRange bad;
    hostfw::BadSectorRange named;  // where the sector the line names may lie
    bool first_command;
  } cases[] = {
      {"random, every sector bad", random_seek, 4096, {0, 4095}, {0, 4095}, true},
      {"funnel, bad at its start", funnel_seek, 100000, {57, 57}, {0, 0}, true},
      {"funnel, bad at the high end", funnel_seek, 100000, {99500, 99998}, {99500, 99998}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bench bench({storage_bench::drive(0, c.sectors, {c.bad})});
    AtaInterposer wire(bench.device(0));
    EXPECT_EQ(c.run(bench), tarvik::TEST_RESULT_FAILED);
    const uint64_t failed = wire.read_lbas().back();
    EXPECT_EQ(bench.lines, (Lines{"ERROR READ_SECTOR_ERROR " + std::to_string(failed)}));
    EXPECT_TRUE(failed >= c.named.first && failed <= c.named.last) << failed;
    if (c.first_command) {
      EXPECT_EQ(wire.commands.size(), 1u);
      EXPECT_EQ(bench.progress, (std::vector<uint64_t>{0, 100}));
    }
  }
}

TEST(FunnelSeekTest, TinyAndHugeDrivesEndWithEveryReadOnTheDrive) {
  // 1000 sectors make a step of 0.7 sector, 2^42 sectors one the generator's
  // 31 bits cannot hold.
  for (uint64_t sectors : {1000ull, 1ull << 42}) {
    Bench bench({storage_bench::drive(0, sectors)});
    AtaInterposer wire(bench.device(0));
    EXPECT_EQ(funnel_seek(bench), tarvik::TEST_RESULT_PASSED) << sectors;
    const auto lbas = wire.read_lbas();
    EXPECT_LT(*std::max_element(lbas.begin(), lbas.end()), sectors);
    EXPECT_LE(lbas.size(), sectors == 1000 ? 2 * sectors : 1960u);
  }
}

}  // namespace
