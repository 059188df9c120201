// The shared range scan over a drive stand-in: large commands, failures
// narrowed to each unreadable block (first and last blocks included), windows
// clipped, a stop request. A silent drive and enough failures ending the
// scan are the targeted read's and the NVMe read tests' to check.
#include "drives/range_scan.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace {

struct Drive {
  std::set<UINT64> bad;
  UINT64 commands = 0;
  UINT32 longest = 0;

  static tarvik::DriveOutcome verify(VOID* context, UINT64 lba, UINT32 blocks) {
    auto& d = *static_cast<Drive*>(context);
    ++d.commands;
    d.longest = blocks > d.longest ? blocks : d.longest;
    auto it = d.bad.lower_bound(lba);
    return it != d.bad.end() && *it < lba + blocks ? tarvik::DriveOutcome::Unreadable : tarvik::DriveOutcome::Passed;
  }
};

struct Sink {
  std::vector<UINT64> unreadable;
  std::vector<UINT64> progress;
  UINT64 run_for = ~0ull;  // how many times KeepRunning says yes
  bool KeepRunning() { return run_for-- > 0; }
  void Progress(UINT64 done) { progress.push_back(done); }
  bool Unreadable(UINT64 lba) {
    unreadable.push_back(lba);
    return true;
  }
};

TEST(RangeScan, FindsEveryUnreadableBlockInLargeCommands) {
  const struct {
    std::set<UINT64> bad;
    UINT64 blocks;
    UINT32 per_command;
  } cases[] = {
      {{}, 1000, 256},
      {{0, 999}, 1000, 256},             // the first and the last block
      {{300, 301, 302, 767}, 1000, 256},
      {{5}, 7, 1},                       // one block per command
  };
  for (const auto& c : cases) {
    Drive drive{c.bad};
    Sink sink;
    EXPECT_EQ(tarvik::ScanRange({&drive, c.blocks, c.per_command, Drive::verify}, 0, c.blocks, sink),
              tarvik::ScanEnd::Completed);
    EXPECT_EQ(sink.unreadable, std::vector<UINT64>(c.bad.begin(), c.bad.end()));
    EXPECT_EQ(sink.progress.back(), c.blocks);
    EXPECT_LE(drive.longest, c.per_command);
    // Narrowing costs about two commands per halving, not one per block.
    EXPECT_LE(drive.commands, (c.blocks + c.per_command - 1) / c.per_command + c.bad.size() * 2 * 9);
  }
}

// Asked before every command, also while narrowing a failed one.
TEST(RangeScan, AStopRequestEndsTheScanBeforeTheNextCommand) {
  for (const UINT64 run_for : {3ull, 5ull}) {
    Drive drive{{250}};
    Sink sink;
    sink.run_for = run_for;
    EXPECT_EQ(tarvik::ScanRange({&drive, 1000, 100, Drive::verify}, 0, 1000, sink), tarvik::ScanEnd::Stopped);
    EXPECT_EQ(drive.commands, run_for);
  }
}

TEST(RangeScan, WindowsAroundLoggedBlocksStayOnTheDrive) {
  const struct { UINT64 lba, blocks, first, count; } cases[] = {
      {500, 1000, 469, 62}, {3, 1000, 0, 34}, {990, 1000, 959, 41}, {1000, 1000, 0, 0}};
  for (const auto& c : cases) {
    const tarvik::BlockWindow w = tarvik::WindowAround(c.lba, 31, 30, c.blocks);
    EXPECT_EQ(std::pair(w.First, w.Count), std::pair(c.first, c.count)) << c.lba;
  }
}

}  // namespace
