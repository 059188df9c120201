// The targeted read: candidates from the drive's own logs (error logs from a
// scripted drive, self-test logs from a simulated drive whose self-test hit a
// bad sector), the 62 sectors read around each, the fifth error, a drive
// without log directory, readers that all fail and SMART that cannot be
// switched on, with nothing left allocated. A stop request is the storage
// module's test.
#include "storage/targeted_read.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <set>

#include "storage/smart_self_tests.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using storage_bench::Bench;
using testing_support::AtaInterposer;
using testing_support::AtaReply;
using Lines = std::vector<std::string>;
using Percents = std::vector<uint64_t>;
using Page = std::vector<uint8_t>;

// The sectors read around each candidate in turn: 31 before it to 30 after
// it, none past `last`.
std::vector<uint64_t> windows(std::initializer_list<uint64_t> candidates, uint64_t last = ~0ull) {
  std::vector<uint64_t> lbas;
  for (uint64_t candidate : candidates)
    for (uint64_t lba = candidate - 31; lba <= std::min(candidate + 30, last); ++lba) lbas.push_back(lba);
  return lbas;
}

// ---- On a simulated drive: candidates from its self-test logs -------------------

// A drive whose short self-test ran into its first unreadable sector, which
// both self-test logs now name: the fifth failed read around it ends the
// test, with five lines newest first. (One logged sector, read once for both
// logs, is the storage screen test's.)
TEST(TargetedReadTest, AfterAFailedSelfTestTheFifthFailedReadEndsTheTestWithFiveLinesNewestFirst) {
  Bench bench({storage_bench::drive(0, 4000000, {{52000, 52015}})});
  ASSERT_EQ(tarvik::SmartSelfTest(bench.run, bench.device(0), tarvik::SelfTestKind::Short),
            tarvik::TEST_RESULT_FAILED);
  bench.lines.clear();
  AtaInterposer wire(bench.device(0));
  EXPECT_EQ(tarvik::TargetedReadTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(wire.read_lbas(), windows({52000}, 52004));
  EXPECT_EQ(bench.lines, (Lines{"ERROR READ_SECTOR_ERROR 52004", "ERROR READ_SECTOR_ERROR 52003",
                                "ERROR READ_SECTOR_ERROR 52002", "ERROR READ_SECTOR_ERROR 52001",
                                "ERROR READ_SECTOR_ERROR 52000"}));
  EXPECT_EQ(bench.progress.back(), 100u);
}

// ---- On a scripted drive: error logs and directories the simulator lacks -------

class ScriptedLogs : public ::testing::Test {
 protected:
  static constexpr uint64_t kSectors = 4000000;

  // The machine with the scripted drive, once the test has set it up.
  void start() {
    fake.devices = {{0, 0xFFFF}};
    fake.responder = [this](const testing_support::RecordedPacket& p) { return answer(p); };
    bench = std::make_unique<Bench>(std::vector<hostfw::DriveInfo>{}, nullptr, [this] { fake.install(); });
  }

  AtaReply answer(const testing_support::RecordedPacket& p) {
    AtaReply reply;
    const EFI_ATA_COMMAND_BLOCK& c = p.acb;
    if (c.AtaCommand == 0xEC) reply.data = identify.data();
    if (c.AtaCommand == 0xB0 && c.AtaFeatures == 0xD0) reply.data.assign(512, 0);
    if (c.AtaCommand == 0xB0 && c.AtaFeatures == 0xD8 && refuse_enable) return AtaReply::error(EFI_DEVICE_ERROR, 0x04);
    if ((c.AtaCommand == 0xB0 && c.AtaFeatures == 0xD5) || c.AtaCommand == 0x2F) {
      auto& logs = c.AtaCommand == 0x2F ? gpl_logs : smart_logs;
      const auto found = logs.find(c.AtaSectorNumber);
      if (found == logs.end()) return AtaReply::error(EFI_DEVICE_ERROR, 0x04);
      reply.data = found->second;
    }
    if (c.AtaCommand == 0x40) {  // the drive has fewer than 2^28 sectors: 28-bit reads
      reads.push_back(c.AtaSectorNumber | uint64_t{c.AtaCylinderLow} << 8 | uint64_t{c.AtaCylinderHigh} << 16 |
                      uint64_t{c.AtaDeviceHead & 0x0Fu} << 24);
      if (bad.count(reads.back()) != 0) return AtaReply::error(EFI_DEVICE_ERROR, 0x40);
    }
    return reply;
  }

  // A log directory naming these logs with these page counts.
  static Page directory(std::map<uint8_t, uint16_t> pages) {
    Page page(512, 0);
    page[0] = 1;
    for (const auto& [address, count] : pages) {
      page[2 * address] = static_cast<uint8_t>(count);
      page[2 * address + 1] = static_cast<uint8_t>(count >> 8);
    }
    return page;
  }

  UINT64 targeted_read() { return tarvik::TargetedReadTest(bench->run, bench->device(0)); }

  testing_support::FakeAtaPassThru fake;
  testing_support::IdentifyPage identify = testing_support::IdentifyPage::typical("Scripted LG-1", "SCRIPT0002", kSectors);
  std::map<uint8_t, Page> smart_logs, gpl_logs;  // by log address; absent ones abort
  std::set<uint64_t> bad;
  std::vector<uint64_t> reads;  // READ VERIFY addresses, in order
  bool refuse_enable = false;
  std::unique_ptr<Bench> bench;
};

TEST_F(ScriptedLogs, ErrorLogEntriesOfBothFormsBecomeCandidatesNewestFirst) {
  smart_logs[0x00] = directory({{0x01, 1}});
  gpl_logs[0x00] = directory({{0x03, 1}});
  Page summary(512, 0);
  summary[65] = 0x88;  // LBA 5000 (0x1388), 28-bit, device register 0xE0
  summary[66] = 0x13;
  summary[68] = 0xE0;
  smart_logs[0x01] = summary;
  Page extended(512, 0);
  // Register order gives 0x2710 (10000), byte order 0x270010 (2555920).
  extended[98] = 0x10;
  extended[100] = 0x27;
  gpl_logs[0x03] = extended;
  bad = {5000};
  start();

  EXPECT_EQ(targeted_read(), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(reads, windows({2555920, 10000, 5000}));
  EXPECT_EQ(bench->lines, (Lines{"ERROR READ_SECTOR_ERROR 5000"}));
  EXPECT_EQ(bench->progress, (Percents{5, 10, 20, 30, 40, 50, 50, 62, 75, 87, 100}));
}

TEST_F(ScriptedLogs, WithoutADirectoryOrAnyLogReadTheTestIsNotSupported) {
  start();
  EXPECT_EQ(targeted_read(), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(bench->lines, (Lines{"WARNING CANT_PERFORM_TEST"}));
  EXPECT_EQ(bench->progress, (Percents{5, 10, 20, 30, 40, 50}));
  // Both directories name every log, and every log read is refused: no line.
  bench->lines.clear();
  smart_logs[0x00] = gpl_logs[0x00] = directory({{0x01, 1}, {0x02, 1}, {0x03, 1}, {0x06, 1}, {0x07, 1}});
  EXPECT_EQ(targeted_read(), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_TRUE(bench->lines.empty());
}

TEST_F(ScriptedLogs, PageCountsComeFromTheLargerDirectoryAsSignedBytes) {
  smart_logs[0x00] = directory({{0x01, 2}, {0x06, 0x00FF}});
  gpl_logs[0x00] = directory({{0x01, 3}, {0x07, 0x0100}});
  start();
  EXPECT_EQ(tarvik::GetLogPageCount(bench->device(0), tarvik::DriveLog::SummaryError), 3);
  EXPECT_EQ(tarvik::GetLogPageCount(bench->device(0), tarvik::DriveLog::ComprehensiveError), 0);
  EXPECT_EQ(tarvik::GetLogPageCount(bench->device(0), tarvik::DriveLog::SelfTest), 255);
  // 255 and 256 pages are no pages as a signed byte: nothing is read.
  fake.packets.clear();
  tarvik::LbaList list;
  EXPECT_EQ(tarvik::ReadLogCandidates(bench->run, bench->device(0), tarvik::DriveLog::SelfTest, list), EFI_SUCCESS);
  EXPECT_EQ(tarvik::ReadLogCandidates(bench->run, bench->device(0), tarvik::DriveLog::ExtSelfTest, list), EFI_SUCCESS);
  EXPECT_EQ(fake.packets.size(), 4u) << "the two directories, twice";
  // Three pages of the summary log are read in one command.
  smart_logs[0x01] = Page(3 * 512, 0);
  EXPECT_EQ(tarvik::ReadLogCandidates(bench->run, bench->device(0), tarvik::DriveLog::SummaryError, list), EFI_SUCCESS);
  EXPECT_EQ(fake.packets.back().acb.AtaSectorCount, 3u);
  EXPECT_EQ(fake.packets.back().in_length, 3u * 512);
  EXPECT_TRUE(list.Contains(0));
}

TEST_F(ScriptedLogs, SmartThatCannotBeSwitchedOnIsAPlatformError) {
  identify.word(85, 0x4020);  // SMART off
  refuse_enable = true;
  start();
  EXPECT_EQ(targeted_read(), tarvik::TEST_RESULT_PLATFORM_ERROR);
  EXPECT_EQ(bench->lines, (Lines{"WARNING SMART_DISABLED", "MESSAGE ENABLING_SMART", "WARNING CANT_ENABLE_SMART"}));
  // The SMART tests count it as a failure.
  bench->lines.clear();
  EXPECT_EQ(tarvik::SmartStatusTest(bench->run, bench->device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench->lines, (Lines{"MESSAGE SMART_DISABLED", "MESSAGE ENABLING_SMART", "WARNING CANT_ENABLE_SMART"}));
  EXPECT_EQ(bench->run.SmartEnabledByTest, 0);
}

}  // namespace
