// One algorithm run as RunTest makes it: every index on one drive, SMART
// switched off again after a run that had to switch it on (and a failure
// when it cannot be), a stop turning any result into canceled.
#include "storage/storage_algorithms.h"

#include <gtest/gtest.h>

#include "storage/ata_commands.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using storage_bench::Bench;
using storage_bench::InterposedPassThru;

UINT64 run(Bench& bench, UINT64 index) {
  return tarvik::RunStorageAlgorithm(index, bench.run, bench.device(0), bench.common());
}

TEST(RunStorageAlgorithm, EachIndexRunsItsAlgorithm) {
  // A healthy drive passes all but the vendor's drive self-test, which the
  // simulated drives refuse.
  Bench bench({storage_bench::drive(0, 4000000)});
  const UINT64 expected[] = {1000, 1000, 1002, 1000, 1000, 1000, 1000};
  for (UINT64 index = 0; index < tarvik::RunnableStorageAlgorithms; ++index) {
    InterposedPassThru wire(bench.device(0));
    EXPECT_EQ(run(bench, index), expected[index]) << index;
    EXPECT_EQ(bench.progress.back(), 100u) << index;
    const int self_test = index == 1 ? 0x01 : index == 2 ? 0x50 : index == 6 ? 0x02 : -1;
    EXPECT_EQ(wire.count(0xB0, 0xD4, self_test), self_test < 0 ? 0u : 1u) << index;
  }
  EXPECT_EQ(run(bench, 7), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(bench.lines.empty());
}

TEST(RunStorageAlgorithm, SmartSwitchedOnForTheRunIsSwitchedOffAgain) {
  hostfw::DriveInfo off = storage_bench::drive(0, 4000000);
  off.smart_enabled = false;
  Bench bench({off});
  EXPECT_EQ(run(bench, 0), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench.run.SmartEnabledByTest, 1);
  EXPECT_EQ(tarvik::SmartReturnStatus(&bench.device(0)), tarvik::ATA_COMMAND_FAILED) << "SMART is off again";

  // A drive that no longer answers when SMART is to be switched off: the
  // run fails although the algorithm passed.
  InterposedPassThru wire(bench.device(0));
  wire.answers = 12;  // ENABLE and eleven RETURN STATUS
  EXPECT_EQ(run(bench, 0), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(wire.blocks.back().AtaFeatures, 0xD9);
}

TEST(RunStorageAlgorithm, AStopMakesAnyResultCanceledAndTheNextRunStartsAfresh) {
  Bench bench({storage_bench::drive(0, 4000000, {{50, 50}})});
  bench.on_progress = [&](uint64_t percent) {
    if (percent == 100) bench.run.Running = 0;  // as the run ends, whatever it found
  };
  EXPECT_EQ(run(bench, 4), tarvik::TEST_RESULT_CANCELED);  // the funnel seek failed in its first 100 sectors
  EXPECT_EQ(bench.lines, (std::vector<std::string>{"ERROR READ_SECTOR_ERROR 0"}));
  bench.on_progress = nullptr;
  EXPECT_EQ(run(bench, 0), tarvik::TEST_RESULT_PASSED) << "the flag is set again for each run";
}

}  // namespace
