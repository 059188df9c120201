// The SMART status test and the self-tests against simulated drives: their
// progress values, log lines and results, a drive without SMART, refusing a
// test, already testing or failing. SMART switched on for a test and a stop
// request that aborts the self-test on the drive are the storage module's
// tests.
#include "storage/smart_self_tests.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "storage/ata_commands.h"
#include "storage/smart_attributes.h"
#include "storage/targeted_read.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using storage_bench::Bench;
using testing_support::AtaInterposer;
using tarvik::SelfTestKind;
using Lines = std::vector<std::string>;
using Percents = std::vector<uint64_t>;

constexpr uint64_t kSectors = 4000000;

// A healthy drive is polled eleven times 150 ms apart; an exceeded threshold
// fails at the first poll. Neither gives a line.
TEST(SmartStatusTest, AHealthyDriveIsPolledElevenTimesAFailingOneOnce) {
  Bench bench({storage_bench::drive(0, kSectors), storage_bench::drive(1, kSectors, {}, /*failing=*/true)});
  AtaInterposer wire(bench.device(0));
  const uint64_t start = bench.now_ms();
  EXPECT_EQ(tarvik::SmartStatusTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench.now_ms() - start, 11u * 150);
  EXPECT_EQ(wire.count(0xB0, 0xDA), 11u);
  EXPECT_EQ(bench.progress, (Percents{0, 0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 100}));
  EXPECT_EQ(bench.run.SmartEnabledByTest, 0);
  bench.progress.clear();
  EXPECT_EQ(tarvik::SmartStatusTest(bench.run, bench.device(1)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench.progress, (Percents{0, 100}));
  EXPECT_TRUE(bench.lines.empty());
}

// The targeted read, which reads the SMART logs, too; it reports no progress.
TEST(SmartTests, ADriveWithoutSmartCannotRunThem) {
  Bench bench({storage_bench::drive(0, kSectors)});
  bench.device(0).Info->SmartSupported = 0;
  AtaInterposer wire(bench.device(0));
  EXPECT_EQ(tarvik::SmartStatusTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_NOT_SUPPORTED);
  for (SelfTestKind kind : {SelfTestKind::Short, SelfTestKind::Drive, SelfTestKind::Extended})
    EXPECT_EQ(tarvik::SmartSelfTest(bench.run, bench.device(0), kind), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(tarvik::TargetedReadTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(bench.lines, Lines(5, "WARNING SMART_NOT_SUPPORTED"));
  EXPECT_EQ(bench.progress, (Percents{0, 100, 0, 100, 0, 100, 0, 100}));
  EXPECT_TRUE(wire.commands.empty()) << "nothing is sent to the drive";
}

TEST(SmartSelfTest, AShortSelfTestIsFollowedEveryFiveSecondsToItsEnd) {
  Bench bench({storage_bench::drive(0, kSectors)});
  AtaInterposer wire(bench.device(0));
  const uint64_t start = bench.now_ms();
  EXPECT_EQ(tarvik::SmartSelfTest(bench.run, bench.device(0), SelfTestKind::Short), tarvik::TEST_RESULT_PASSED);
  // The simulated short test takes two minutes; polls come every five seconds.
  const uint64_t elapsed = bench.now_ms() - start;
  EXPECT_GE(elapsed, 120000u);
  EXPECT_LE(elapsed, 130000u);
  EXPECT_EQ(wire.count(0xB0, 0xD4, 0x01), 1u);
  EXPECT_EQ(wire.count(0xB0, 0xD4, 0x7F), 0u) << "a finished test is not aborted";
  EXPECT_GE(bench.progress.size(), 20u) << "what each poll reports is ScriptedSelfTest's test";
  EXPECT_TRUE(bench.lines.empty());
}

TEST(SmartSelfTest, ASelfTestAlreadyRunningIsAbortedBeforeTheNewOneStarts) {
  Bench bench({storage_bench::drive(0, kSectors)});
  ASSERT_EQ(tarvik::SmartExecuteOffline(&bench.device(0), 0x02, 0), 0u);  // an extended test, left running
  AtaInterposer wire(bench.device(0));
  EXPECT_EQ(tarvik::SmartSelfTest(bench.run, bench.device(0), SelfTestKind::Short), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench.lines, (Lines{"MESSAGE SELF_TEST_ALREADY_IN_PROGRESS"}));
  ASSERT_GE(wire.commands.size(), 3u);
  EXPECT_EQ(wire.commands[0].block.AtaFeatures, 0xD0);  // READ DATA sees it running
  EXPECT_EQ(wire.commands[1].block.AtaSectorNumber, 0x7F);
  EXPECT_EQ(wire.commands[2].block.AtaSectorNumber, 0x01);
}

// Self-test status bytes the simulated drives do not produce, from a
// scripted drive: SMART READ DATA answers with the next byte of a sequence.
class ScriptedSelfTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake.devices = {{0, 0xFFFF}};
    fake.responder = [this](const testing_support::RecordedPacket& p) {
      testing_support::AtaReply reply;
      if (p.acb.AtaCommand == 0xEC) reply.data = identify.data();
      if (p.acb.AtaCommand == 0xB0 && p.acb.AtaFeatures == 0xD0) {
        reply.data.assign(512, 0);
        if (!statuses.empty()) {
          reply.data[363] = statuses.front();
          if (statuses.size() > 1) statuses.erase(statuses.begin());
        }
      }
      if (p.acb.AtaCommand == 0xB0 && p.acb.AtaFeatures == 0xD4 && refuse_start)
        return testing_support::AtaReply::error(EFI_DEVICE_ERROR, 0x04);
      return reply;
    };
    bench = std::make_unique<Bench>(std::vector<hostfw::DriveInfo>{}, nullptr, [this] { fake.install(); });
  }

  testing_support::FakeAtaPassThru fake;
  testing_support::IdentifyPage identify =
      testing_support::IdentifyPage::typical("Scripted SD-1", "SCRIPT0001");
  std::vector<uint8_t> statuses;
  bool refuse_start = false;
  std::unique_ptr<Bench> bench;
};

TEST_F(ScriptedSelfTest, StatusBytesBecomeProgressUntilTheOutcome) {
  statuses = {0x00, 0xF9, 0xF3, 0x00};  // before the start, then three polls
  EXPECT_EQ(tarvik::SmartSelfTest(bench->run, bench->device(0), SelfTestKind::Short), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench->progress, (Percents{0, 9, 69, 100, 100}));
}

TEST_F(ScriptedSelfTest, ATestInterruptedByAResetIsAnErrorOfEveryKind) {
  for (SelfTestKind kind : {SelfTestKind::Short, SelfTestKind::Drive, SelfTestKind::Extended}) {
    bench->lines.clear();
    statuses = {0x00, 0xF9, 0x21};
    EXPECT_EQ(tarvik::SmartSelfTest(bench->run, bench->device(0), kind), tarvik::TEST_RESULT_FAILED);
    EXPECT_EQ(bench->lines, (Lines{"MESSAGE SHORT_SELFTEST_ERROR_DETECTED"}));
  }
}

// The vendor's drive self-test (0x50, sector count 4) refused is not
// supported; the others refused are failures.
TEST_F(ScriptedSelfTest, ARefusedStartFailsTheShortAndExtendedTests) {
  refuse_start = true;
  EXPECT_EQ(tarvik::SmartSelfTest(bench->run, bench->device(0), SelfTestKind::Short), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(tarvik::SmartSelfTest(bench->run, bench->device(0), SelfTestKind::Extended), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(tarvik::SmartSelfTest(bench->run, bench->device(0), SelfTestKind::Drive),
            tarvik::TEST_RESULT_NOT_SUPPORTED);
  const EFI_ATA_COMMAND_BLOCK& start = fake.packets.back().acb;
  EXPECT_EQ(start.AtaSectorNumber, 0x50);
  EXPECT_EQ(start.AtaSectorCount, 4);
  EXPECT_TRUE(bench->lines.empty());
  EXPECT_EQ(bench->progress.back(), 100u);
}

}  // namespace
