// Drives that misbehave in the middle of a run: one that stops answering
// during each storage algorithm and during the bad-sector tool's scan and
// repair, a command that never completes, IDENTIFY data of all 0xFF and log
// directories that claim 255 pages of every log. Every run ends with a line
// and a result after bounded machine time, sends nothing to a drive once it
// went quiet, writes nothing (but the repair, before that) and leaves no pool
// or page behind.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "core/diag_common.h"
#include "hostfw/ata_controller.h"
#include "storage/drive_discovery.h"
#include "storage/seek_tests.h"
#include "storage/smart_self_tests.h"
#include "storage/targeted_read.h"
#include "tests/unit/bad_sector_tool_harness.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using storage_bench::Bench;
using testing_support::AtaInterposer;
using testing_support::TestMachine;
using testing_support::ToolBench;
using testing_support::ToolScreen;
using testing_support::kCheck;
using testing_support::kRecover;
using Lines = std::vector<std::string>;

constexpr uint64_t kSectors = 4000000;
constexpr uint64_t kCandidate = 5000;  // the read error the drive's error log remembers
constexpr uint64_t kReadTimeoutMs = 10000;

uint64_t writes_sent(const hostfw::AtaCommandCounts& counts) {
  return counts.command(0x30) + counts.command(0x34) + counts.command(0x45);
}

// ---- The six storage algorithms ---------------------------------------------------

struct Algorithm {
  const char* name;
  std::function<UINT64(Bench&)> run;
};

const Algorithm kAlgorithms[] = {
    {"SmartStatus", [](Bench& b) { return tarvik::SmartStatusTest(b.run, b.device(0)); }},
    {"ShortSelfTest", [](Bench& b) { return tarvik::SmartSelfTest(b.run, b.device(0), tarvik::SelfTestKind::Short); }},
    {"DriveSelfTest", [](Bench& b) { return tarvik::SmartSelfTest(b.run, b.device(0), tarvik::SelfTestKind::Drive); }},
    {"RandomSeek", [](Bench& b) { return tarvik::RandomSeekTest(b.run, b.device(0), b.common()); }},
    {"FunnelSeek", [](Bench& b) { return tarvik::FunnelSeekTest(b.run, b.device(0), b.common()); }},
    {"TargetedRead", [](Bench& b) { return tarvik::TargetedReadTest(b.run, b.device(0)); }},
};
const Algorithm& algorithm(const char* name) {
  for (const Algorithm& a : kAlgorithms)
    if (std::string(a.name) == name) return a;
  throw std::out_of_range(name);
}

hostfw::DriveInfo logged_drive(std::vector<hostfw::BadSectorRange> hang = {}) {
  hostfw::DriveInfo d = storage_bench::drive(0, kSectors);
  d.error_log_lbas = {kCandidate};
  d.hang_sectors = std::move(hang);
  return d;
}

// A drive that answers so many commands of the algorithm, then none.
struct SilentCase {
  const char* algorithm;
  uint64_t answered;
};

class DriveFallsSilent : public ::testing::TestWithParam<SilentCase> {};

TEST_P(DriveFallsSilent, TheAlgorithmFailsWithTheCommunicationLineAfterOneUnansweredCommand) {
  const SilentCase c = GetParam();
  Bench bench({logged_drive()});
  hostfw::AtaController& ata = *bench.machine().ata();
  const uint64_t before = ata.counts(0).total;
  ata.stop_answering_after(0, c.answered);
  const uint64_t start = bench.now_ms();

  EXPECT_EQ(algorithm(c.algorithm).run(bench), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench.lines, (Lines{"ERROR COMMUNICATION_FAILURE"})) << "no sector is blamed";
  ASSERT_FALSE(bench.progress.empty());
  EXPECT_EQ(bench.progress.back(), 100u);
  EXPECT_EQ(ata.counts(0).total, before + c.answered + 1) << "nothing after the command that was not answered";
  EXPECT_EQ(writes_sent(ata.counts(0)), 0u);
  // The unanswered command costs its timeout (40 s at most), then it ends.
  EXPECT_LT(bench.now_ms() - start, 120000u);
}

INSTANTIATE_TEST_SUITE_P(
    EveryAlgorithm, DriveFallsSilent,
    ::testing::Values(SilentCase{"SmartStatus", 5}, SilentCase{"ShortSelfTest", 6}, SilentCase{"DriveSelfTest", 6},
                      SilentCase{"RandomSeek", 2500}, SilentCase{"FunnelSeek", 900},
                      // While the logs are read, and among the sectors around the candidate.
                      SilentCase{"TargetedRead", 4}, SilentCase{"TargetedRead", 40}),
    [](const ::testing::TestParamInfo<SilentCase>& info) {
      return std::string(info.param.algorithm) + "After" + std::to_string(info.param.answered);
    });

// One sector whose every access never completes, in the middle of the
// drive's surface: the surface test waits the command's timeout once, and
// reports the drive as not answering rather than the sector as unreadable.
TEST(SurfaceTests, ASectorThatNeverAnswersEndsTheTestAfterOneTimeout) {
  struct Case {
    const char* algorithm;
    hostfw::BadSectorRange hang;
  };
  const Case cases[] = {
      {"RandomSeek", {kSectors / 2, kSectors / 2 + kSectors / 50}},     // 2 % of the drive
      {"FunnelSeek", {kSectors / 2 - 20000, kSectors / 2 + 20000}},     // where the funnel closes
      {"TargetedRead", {kCandidate + 10, kCandidate + 10}},             // inside the candidate's window
  };
  for (const Case& c : cases) {
    Bench bench({logged_drive({c.hang})});
    AtaInterposer wire(bench.device(0));
    const uint64_t start = bench.now_ms();
    EXPECT_EQ(algorithm(c.algorithm).run(bench), tarvik::TEST_RESULT_FAILED) << c.algorithm;
    EXPECT_EQ(bench.lines, (Lines{"ERROR COMMUNICATION_FAILURE"})) << c.algorithm;
    EXPECT_EQ(bench.progress.back(), 100u) << c.algorithm;
    ASSERT_FALSE(wire.read_lbas().empty());
    const uint64_t last = wire.read_lbas().back();
    EXPECT_TRUE(last >= c.hang.first && last <= c.hang.last) << c.algorithm << ": the run ends at the hanging read";
    EXPECT_GT(wire.read_lbas().size(), 1u) << c.algorithm << ": in the middle, not at the first read";
    const uint64_t elapsed = bench.now_ms() - start;
    EXPECT_GE(elapsed, kReadTimeoutMs) << c.algorithm;
    EXPECT_LT(elapsed, kReadTimeoutMs + 5000) << c.algorithm << ": one timeout, no second";
    EXPECT_EQ(writes_sent(bench.machine().ata()->counts(0)), 0u);
  }
}

// ---- Log directories that claim more than any buffer should hold --------------------

TEST(TargetedReadTest, DirectoriesClaimingMorePagesThanTheLogsHoldGetBuffersOfThatSizeAndARefusal) {
  // 127 pages, the most a signed byte gives: each reader takes a buffer of
  // 127 pages and asks for them all; the drive has one or two and refuses.
  for (uint16_t claimed : {127, 300}) {
    hostfw::DriveInfo d = logged_drive();
    d.log_pages = 2;
    d.log_directory_pages = claimed;
    Bench bench({d});
    const hostfw::AtaCommandCounts& counts = bench.machine().ata()->counts(0);
    const uint64_t log_reads_before = counts.command(0x2F) + counts.smart(0xD5);
    const UINT64 result = tarvik::TargetedReadTest(bench.run, bench.device(0));
    EXPECT_EQ(result, tarvik::TEST_RESULT_NOT_SUPPORTED) << claimed;
    EXPECT_EQ(bench.progress.back(), 50u) << claimed;
    // 300 is 44 as a byte: still more than the logs hold.
    EXPECT_EQ(counts.command(0x2F) + counts.smart(0xD5) - log_reads_before, 15u) << claimed;
    EXPECT_EQ(counts.command(0x40) + counts.command(0x42), 0u) << claimed;
  }  // each Bench checks that no log buffer was left behind
}

// ---- IDENTIFY data of all 0xFF ---------------------------------------------------------

TEST(GarbageIdentify, ADriveAnsweringIdentifyWithAll0xFFIsLeftOutAndTheOthersKept) {
  // Its serial number is not text: nothing it says (capacity, rotation,
  // SMART) can be trusted, so the probe passes it over, as any drive whose
  // serial holds an unprintable byte.
  hostfw::DriveInfo garbage = storage_bench::drive(1, kSectors);
  garbage.identify_fill = 0xFF;
  Bench bench({storage_bench::drive(0, kSectors), garbage});
  EXPECT_EQ(bench.device(0).Port, 0u);
  EXPECT_EQ(testing_support::utf8(bench.device(0).Info->SerialNumber), "BENCH0000");
  EXPECT_EQ(bench.device(1).Info, nullptr) << "only one drive in the table";
  const hostfw::AtaCommandCounts& counts = bench.machine().ata()->counts(1);
  EXPECT_EQ(counts.total, 1u) << "the probe's IDENTIFY and nothing after it";
}

TEST(GarbageIdentify, GarbageOnIdentifyingAgainKeepsWhatTheDriveSaidWhenItAnswered) {
  // System Information identifies every drive afresh; all 0xFF would claim
  // 2^64 - 1 sectors, which the surface tests and the scan would then use.
  Bench bench({storage_bench::drive(0, kSectors)});
  const tarvik::StorageDeviceInfo before = *bench.device(0).Info;
  {
    // From now on its IDENTIFY data arrives as all 0xFF.
    AtaInterposer wire(bench.device(0));
    wire.answer = [](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const AtaInterposer::Forward& drive) {
      const EFI_STATUS status = drive();
      if (status == EFI_SUCCESS && packet.Acb->AtaCommand == 0xEC) std::memset(packet.InDataBuffer, 0xFF, 512);
      return status;
    };
    EXPECT_EQ(tarvik::IdentifyDevice(&bench.device(0)), EFI_DEVICE_ERROR);
  }
  EXPECT_EQ(std::memcmp(bench.device(0).Info, &before, sizeof before), 0);
  EXPECT_EQ(bench.device(0).Info->TotalSectors, kSectors);
  EXPECT_EQ(tarvik::IdentifyDevice(&bench.device(0)), EFI_SUCCESS) << "answering properly again, it is read again";
}

// ---- The bad-sector tool -----------------------------------------------------------------

class MisbehavingToolDrive : public ::testing::Test {
 protected:
  // A 28-bit drive of 4096 sectors, verified 16 at a time, with bad sectors
  // at 1000 and 2000.
  void start(std::vector<hostfw::BadSectorRange> hang = {}) {
    hostfw::DriveInfo d = storage_bench::drive(1, 4096, {{1000, 1000}, {2000, 2000}});
    d.hang_sectors = std::move(hang);
    bench.reset();  // one machine at a time
    machine.reset();
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) { p.drives = {d}; });
    bench = std::make_unique<ToolBench>(*machine);
    ASSERT_TRUE(bench->start());
  }
  void TearDown() override { bench.reset(); }
  hostfw::AtaController& ata() { return *(*machine)->ata(); }
  uint64_t now_ms() { return (*machine)->clock().now_ns() / 1000000; }

  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<ToolBench> bench;
};

const Lines kScanEndsAfterTheFirstBadSector = {"Error #001 in sector 1000", "Error different of UNC.",
                                               "Cannot continue testing. Error Time out"};

// A drive that falls silent after the health warning's two SMART reads and
// the scan up to sector 1600, or a sector (1500) that never answers: either
// way the scan ends at once with nothing written, after one timeout at most.
TEST_F(MisbehavingToolDrive, ASilentDriveOrSectorEndsTheScanWithNothingWritten) {
  for (const bool silent : {true, false})
    for (UINT64 operation : {kCheck, kRecover}) {
      SCOPED_TRACE(std::string(silent ? "silent drive, " : "hanging sector, ") + std::to_string(operation));
      start(silent ? std::vector<hostfw::BadSectorRange>{} : std::vector<hostfw::BadSectorRange>{{1500, 1500}});
      if (silent) ata().stop_answering_after(1, 2 + 100);
      const uint64_t before = ata().counts(1).total;
      const uint64_t start_ms = now_ms();
      ToolScreen screen;
      EXPECT_EQ(bench->run(operation, screen), 1001u);
      Lines expected = kScanEndsAfterTheFirstBadSector;
      if (operation == kCheck) {
        expected.push_back("# Bad sectors found =\t 1 #");
      } else {
        // No recovery is offered: the drive would not take the writes.
        expected.insert(expected.end(), {"The drive does not answer: nothing more is written to it.",
                                         "# Bad sectors found =\t 1 #", "# 1 Bad Sectors remain(s) #"});
      }
      EXPECT_EQ(screen.lines, expected);
      EXPECT_EQ(screen.boxes.size(), operation == kCheck ? 1u : 2u) << "the confirmations only";
      if (silent) {
        EXPECT_EQ(ata().counts(1).total, before + 103) << "nothing after the unanswered command";
      }
      // The check's pause after its bad sector, and one timeout.
      EXPECT_LT(now_ms() - start_ms, kReadTimeoutMs + 2000);
      EXPECT_EQ(writes_sent(ata().counts(1)), 0u);
      EXPECT_TRUE(ata().sector_is_bad(1, 1000));
      bench.reset();  // nothing left allocated
    }
}

TEST_F(MisbehavingToolDrive, ADriveFallingSilentDuringTheRepairGetsNoFurtherWrite) {
  start();
  ToolScreen screen;
  // Once the scan is over the drive takes two more commands: the
  // newest bad sector's re-check and its write; the read-back is never answered.
  screen.on_progress = [&](UINT64 percent) {
    if (percent == 100) ata().stop_answering_after(1, 2);
  };
  EXPECT_EQ(bench->run(kRecover, screen), 1001u);
  const Lines tail(screen.lines.end() - 6, screen.lines.end());
  EXPECT_EQ(tail, (Lines{"# Bad sectors found =\t = 2 #", "Trying to repair the sector 2000",
                         "Sector 2000 cannot be recovered", "The drive does not answer: nothing more is written to it.",
                         "# Bad sectors found =\t 2 #", "# 2 Bad Sectors remain(s) #"}));
  const hostfw::AtaCommandCounts& counts = ata().counts(1);
  EXPECT_EQ(counts.command(0x30), 1u) << "sector 1000 was not tried";
  EXPECT_EQ(counts.writes_at(1000), 0u);
}

}  // namespace
