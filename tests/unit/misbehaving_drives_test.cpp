// Drives that misbehave in the middle of a run: one that stops answering
// during each storage algorithm and during the bad-sector tool's scan and
// repair, and IDENTIFY data turning to all 0xFF. Every run ends with a line
// and a result after bounded machine time, sends nothing to a drive once it
// went quiet, writes nothing (but the repair, before that) and leaves no pool
// or page behind.
#include <gtest/gtest.h>

#include <cstring>
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
using tarvik::SelfTestKind;

constexpr uint64_t kSectors = 4000000;
constexpr uint64_t kReadTimeoutMs = 10000;

uint64_t writes_sent(const hostfw::AtaCommandCounts& counts) {
  return counts.command(0x30) + counts.command(0x34) + counts.command(0x45);
}

// ---- The six storage algorithms ---------------------------------------------------

UINT64 targeted_read(Bench& b) { return tarvik::TargetedReadTest(b.run, b.device(0)); }

// A drive that answers so many commands of the algorithm, then none: the
// algorithm fails with the communication line, blaming no sector, and sends
// nothing after the unanswered command, which costs its timeout (40 s at most).
TEST(DriveFallsSilent, EachAlgorithmFailsWithTheCommunicationLineAfterOneUnansweredCommand) {
  const struct {
    const char* algorithm;
    uint64_t answered;
    UINT64 (*run)(Bench&);
  } cases[] = {
      {"status", 5, [](Bench& b) { return tarvik::SmartStatusTest(b.run, b.device(0)); }},
      {"short self-test", 6, [](Bench& b) { return tarvik::SmartSelfTest(b.run, b.device(0), SelfTestKind::Short); }},
      {"drive self-test", 6, [](Bench& b) { return tarvik::SmartSelfTest(b.run, b.device(0), SelfTestKind::Drive); }},
      {"random seek", 2500, [](Bench& b) { return tarvik::RandomSeekTest(b.run, b.device(0), b.common()); }},
      {"funnel seek", 900, [](Bench& b) { return tarvik::FunnelSeekTest(b.run, b.device(0), b.common()); }},
      // While the logs are read, and among the sectors around the candidate.
      {"targeted read", 4, targeted_read},
      {"targeted read", 40, targeted_read},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.algorithm) + " after " + std::to_string(c.answered));
    hostfw::DriveInfo d = storage_bench::drive(0, kSectors);
    d.error_log_lbas = {5000};  // the read error the drive's error log remembers
    Bench bench({d});
    hostfw::AtaController& ata = *bench.machine().ata();
    const uint64_t before = ata.counts(0).total;
    ata.stop_answering_after(0, c.answered);
    const uint64_t start = bench.now_ms();
    EXPECT_EQ(c.run(bench), tarvik::TEST_RESULT_FAILED);
    EXPECT_EQ(bench.lines, (Lines{"ERROR COMMUNICATION_FAILURE"}));
    ASSERT_FALSE(bench.progress.empty());
    EXPECT_EQ(bench.progress.back(), 100u);
    EXPECT_EQ(ata.counts(0).total, before + c.answered + 1);
    EXPECT_EQ(writes_sent(ata.counts(0)), 0u);
    EXPECT_LT(bench.now_ms() - start, 120000u);
  }
}

// A drive whose IDENTIFY data turns to all 0xFF once it was identified
// (a drive answering so from the start is passed over as any drive whose
// serial holds an unprintable byte: DriveDiscovery's test).
TEST(GarbageIdentify, GarbageOnIdentifyingAgainKeepsWhatTheDriveSaidWhenItAnswered) {
  // System Information identifies every drive afresh; all 0xFF would claim
  // 2^64 - 1 sectors, which the surface tests and the scan would then use.
  Bench bench({storage_bench::drive(0, kSectors)});
  const tarvik::StorageDeviceInfo before = *bench.device(0).Info;
  {
    AtaInterposer wire(bench.device(0));
    wire.answer = [](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const AtaInterposer::Forward& drive) {
      const EFI_STATUS status = drive();
      if (status == EFI_SUCCESS && packet.Acb->AtaCommand == 0xEC) std::memset(packet.InDataBuffer, 0xFF, 512);
      return status;
    };
    EXPECT_EQ(tarvik::IdentifyDevice(&bench.device(0)), EFI_DEVICE_ERROR);
  }
  EXPECT_EQ(std::memcmp(bench.device(0).Info, &before, sizeof before), 0);
  EXPECT_EQ(tarvik::IdentifyDevice(&bench.device(0)), EFI_SUCCESS) << "answering properly again, it is read again";
}

// ---- The bad-sector tool -----------------------------------------------------------------

class MisbehavingToolDrive : public ::testing::Test {
 protected:
  // A 28-bit drive of 4096 sectors, verified 16 at a time, with bad sectors
  // at 1000 and 2000.
  void start() {
    const hostfw::DriveInfo d = storage_bench::drive(1, 4096, {{1000, 1000}, {2000, 2000}});
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
// the scan up to sector 1600: the scan ends at once with nothing written,
// after one timeout at most. (A sector that never answers times out alike.)
TEST_F(MisbehavingToolDrive, ASilentDriveEndsTheScanWithNothingWritten) {
  for (UINT64 operation : {kCheck, kRecover}) {
    SCOPED_TRACE(operation);
    start();
    ata().stop_answering_after(1, 2 + 100);
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
    EXPECT_EQ(ata().counts(1).total, before + 103) << "nothing after the unanswered command";
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
