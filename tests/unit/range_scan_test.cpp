// The shared range scan over a drive stand-in: large commands, failures
// narrowed to each unreadable block (first and last blocks included), a
// silent drive and a stop request ending the scan, windows clipped.
#include "drives/range_scan.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace {

struct Drive {
  explicit Drive(std::set<UINT64> bad_blocks = {}, UINT64 silent = ~0ull) : bad(std::move(bad_blocks)), silent_from(silent) {}
  std::set<UINT64> bad;
  UINT64 silent_from;  // commands from this one on get no answer
  UINT64 commands = 0;
  UINT32 longest = 0;

  static tarvik::DriveOutcome verify(VOID* context, UINT64 lba, UINT32 blocks) {
    auto& d = *static_cast<Drive*>(context);
    if (d.commands++ >= d.silent_from) return tarvik::DriveOutcome::NoAnswer;
    d.longest = blocks > d.longest ? blocks : d.longest;
    auto it = d.bad.lower_bound(lba);
    return it != d.bad.end() && *it < lba + blocks ? tarvik::DriveOutcome::Unreadable : tarvik::DriveOutcome::Passed;
  }
  tarvik::DriveOperations operations(UINT64 blocks, UINT32 per_command) {
    return {this, blocks, per_command, verify};
  }
};

struct Sink {
  explicit Sink(const Drive& d, UINT64 stop = ~0ull, UINT64 max = ~0ull)
      : stop_after_commands(stop), max_unreadable(max), drive(&d) {}
  std::vector<UINT64> unreadable;
  std::vector<UINT64> progress;
  UINT64 stop_after_commands;
  UINT64 max_unreadable;
  const Drive* drive;
  bool KeepRunning() const { return drive->commands < stop_after_commands; }
  void Progress(UINT64 done) { progress.push_back(done); }
  bool Unreadable(UINT64 lba) {
    unreadable.push_back(lba);
    return unreadable.size() < max_unreadable;
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
    Drive drive(c.bad);
    Sink sink(drive);
    EXPECT_EQ(tarvik::ScanRange(drive.operations(c.blocks, c.per_command), 0, c.blocks, sink),
              tarvik::ScanEnd::Completed);
    EXPECT_EQ(sink.unreadable, std::vector<UINT64>(c.bad.begin(), c.bad.end()));
    EXPECT_EQ(sink.progress.back(), c.blocks);
    EXPECT_LE(drive.longest, c.per_command);
    // Narrowing costs about two commands per halving, not one per block.
    EXPECT_LE(drive.commands, (c.blocks + c.per_command - 1) / c.per_command + c.bad.size() * 2 * 9);
  }
}

TEST(RangeScan, EndsOnSilenceStopOrEnoughFailures) {
  Drive silent({}, 2);
  Sink sink(silent);
  EXPECT_EQ(tarvik::ScanRange(silent.operations(1000, 100), 0, 1000, sink), tarvik::ScanEnd::NoAnswer);
  EXPECT_EQ(sink.progress.size(), 2u);

  Drive stopped;
  Sink stop(stopped, 3);
  EXPECT_EQ(tarvik::ScanRange(stopped.operations(1000, 100), 0, 1000, stop), tarvik::ScanEnd::Stopped);
  EXPECT_EQ(stopped.commands, 3u);

  Drive failing({10, 20, 30});
  Sink enough(failing, ~0ull, 2);
  EXPECT_EQ(tarvik::ScanRange(failing.operations(100, 50), 0, 100, enough), tarvik::ScanEnd::Stopped);
  EXPECT_EQ(enough.unreadable, (std::vector<UINT64>{10, 20}));

  Drive outside;
  Sink none(outside);
  EXPECT_EQ(tarvik::ScanRange(outside.operations(100, 50), 100, 5, none), tarvik::ScanEnd::Completed);
  EXPECT_EQ(tarvik::ScanRange(outside.operations(100, 50), 90, 50, none), tarvik::ScanEnd::Completed);
  EXPECT_EQ(none.progress.back(), 10u);  // clipped at the end of the drive
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
