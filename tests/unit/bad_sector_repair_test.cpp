// The bad-sector tool on a drive played by the recording pass-through, for
// what the simulated drives cannot show: sectors that refuse a write or stay
// unreadable after one, an error other than UNC, a failing LBA outside the
// command, SMART pages without the reallocated-sector attribute, 4096-byte
// sectors, a drive that refuses WRITE UNCORRECTABLE, and no memory for the
// sector buffer. Every write the tool sends is checked against the sectors
// its scan found.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <set>

#include "badsector/write_uncorrectable.h"
#include "core/diag_common.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/unit/bad_sector_tool_harness.h"

namespace {

using testing_support::AtaCommand;
using testing_support::AtaReply;
using testing_support::CommandWatch;
using testing_support::FakeAtaPassThru;
using testing_support::RecordedPacket;
using testing_support::TestMachine;
using testing_support::ToolBench;
using testing_support::ToolScreen;
using testing_support::kCheck;
using testing_support::kNo;
using testing_support::kRecover;
using testing_support::kWriteUncorrectable;
using Lines = std::vector<std::string>;

constexpr uint8_t kAbort = 0x04, kUncorrectable = 0x40;

// A rotating drive of the 28-bit form (under 2^28 sectors), answering as the
// script says. Like the firmware under QEMU, it reports a failed command
// with EFI_SUCCESS and the error in the status block only.
struct ScriptedDrive {
  uint64_t sectors = 4096;
  uint32_t logical_bytes = 512;
  std::set<uint64_t> bad;            // READ VERIFY ends with UNC at the first of these
  std::set<uint64_t> unwritable;     // a write ends with ABRT
  std::set<uint64_t> unrecoverable;  // a write succeeds, the sector stays bad
  std::optional<uint64_t> aborts_at;           // a READ VERIFY over it ends with ABRT
  std::optional<uint64_t> reports_failing_at;  // the LBA an UNC names, whatever failed
  bool smart_read_fails = false;
  bool refuses_write_uncorrectable = false;
  std::optional<uint8_t> reallocated_value = 100;  // attribute 5; none: not listed
  std::optional<uint8_t> reallocated_threshold = 36;

  AtaReply answer(const RecordedPacket& p) {
    const EFI_ATA_COMMAND_BLOCK& c = p.acb;
    const uint64_t lba = c.AtaSectorNumber | c.AtaCylinderLow << 8 | c.AtaCylinderHigh << 16 |
                         uint64_t{c.AtaDeviceHead & 0x0Fu} << 24;
    const uint64_t count = c.AtaSectorCount == 0 ? 256 : c.AtaSectorCount;
    switch (c.AtaCommand) {
      case 0xEC: return data(identify());
      case 0x40: {
        if (aborts_at && *aborts_at >= lba && *aborts_at < lba + count) return failed(kAbort, lba);
        const auto first = bad.lower_bound(lba);
        if (first != bad.end() && *first < lba + count)
          return failed(kUncorrectable, reports_failing_at.value_or(*first));
        return {};
      }
      case 0x30:
        if (unwritable.count(lba) != 0) return failed(kAbort, lba);
        if (unrecoverable.count(lba) == 0) bad.erase(lba);
        return {};
      case 0x45:
        if (refuses_write_uncorrectable) return failed(kAbort, 0);
        bad.insert(lba);
        return {};
      case 0xB0: return smart(c.AtaFeatures);
      default: return failed(kAbort, 0);
    }
  }

 private:
  static AtaReply data(std::vector<uint8_t> bytes) {
    AtaReply reply;
    reply.data = std::move(bytes);
    return reply;
  }
  static AtaReply failed(uint8_t error, uint64_t lba) {
    AtaReply reply = AtaReply::error(EFI_SUCCESS, error);
    reply.status_block.AtaSectorNumber = static_cast<uint8_t>(lba);
    reply.status_block.AtaCylinderLow = static_cast<uint8_t>(lba >> 8);
    reply.status_block.AtaCylinderHigh = static_cast<uint8_t>(lba >> 16);
    reply.status_block.AtaDeviceHead = static_cast<uint8_t>(0xE0 | ((lba >> 24) & 0x0F));
    return reply;
  }
  std::vector<uint8_t> identify() const {
    auto page = testing_support::IdentifyPage::typical("ACME XR-1000", "SN0000000001", sectors);
    if (logical_bytes != 512)
      page.word(106, 0x5000).word(117, static_cast<uint16_t>(logical_bytes / 2)).word(118, 0);
    return page.data();
  }
  AtaReply smart(uint8_t feature) const {
    if (feature != 0xD0 && feature != 0xD1) return {};
    if (smart_read_fails) return failed(kAbort, 0);
    std::vector<uint8_t> page(512, 0);
    const auto listed = feature == 0xD0 ? reallocated_value : reallocated_threshold;
    if (listed) {
      page[2 + 12 * 4] = 5;  // the fifth slot
      page[2 + 12 * 4 + (feature == 0xD0 ? 3 : 1)] = *listed;
    }
    return data(page);
  }
};

class ScriptedRepair : public ::testing::Test {
 protected:
  void SetUp() override {
    machine = std::make_unique<TestMachine>("", [](hostfw::Profile& p) { p.drives.clear(); });
    fake = std::make_unique<FakeAtaPassThru>();
    fake->devices = {{0, 0xFFFF}};
    fake->responder = [this](const RecordedPacket& p) { return drive.answer(p); };
    fake->install();
  }
  void start() {
    bench = std::make_unique<ToolBench>(*machine);
    ASSERT_TRUE(bench->start());
    watch = std::make_unique<CommandWatch>(fake->protocol());
  }
  void TearDown() override {
    watch.reset();
    bench.reset();
    fake.reset();
  }
  // Runs the tool; every write it sent must be one sector that the run's
  // scan reported uncorrectable, sent after that report.
  UINT64 run(UINT64 operation, ToolScreen& screen) {
    watch->commands.clear();
    const UINT64 result = bench->run(operation, screen);
    std::set<uint64_t> reported;
    for (const std::string& line : screen.lines)
      if (line.rfind("Error #", 0) == 0) reported.insert(std::stoull(line.substr(line.rfind(' ') + 1)));
    if (operation != kWriteUncorrectable)
      for (const AtaCommand& w : watch->writes()) {
        EXPECT_EQ(w.code, 0x30);
        EXPECT_EQ(w.count, 1u);
        EXPECT_EQ(reported.count(w.lba), 1u) << "wrote sector " << w.lba;
      }
    return result;
  }
  std::vector<uint64_t> written() {
    std::vector<uint64_t> lbas;
    for (const AtaCommand& w : watch->writes()) lbas.push_back(w.lba);
    return lbas;
  }

  ScriptedDrive drive;
  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<FakeAtaPassThru> fake;
  std::unique_ptr<ToolBench> bench;
  std::unique_ptr<CommandWatch> watch;
};

TEST_F(ScriptedRepair, SectorsThatRefuseTheWriteOrStayBadRemainAndTheOthersAreRepaired) {
  drive.bad = {100, 200, 300};
  drive.unwritable = {200};
  drive.unrecoverable = {300};
  start();
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1001u);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 100", "Error #002 in sector 200", "Error #003 in sector 300",
                                 "# Bad sectors found =\t = 3 #", "Trying to repair the sector 300",
                                 "Sector 300 cannot be recovered", "Trying to repair the sector 200",
                                 "Sector 200 cannot be written", "Trying to repair the sector 100",
                                 "Corrected sector 100", "# Bad sectors found =\t 3 #", "# Bad sectors recovered: 1 #",
                                 "# 2 Bad Sectors remain(s) #"}));
  EXPECT_EQ(written(), (std::vector<uint64_t>{300, 200, 100}));
  // Each write that went through is read back, alone.
  std::vector<uint64_t> read_back;
  bool after_write = false;
  for (const AtaCommand& c : watch->commands) {
    if (c.code == 0x40 && after_write) {
      read_back.push_back(c.lba);
      EXPECT_EQ(c.count, 1u);
    }
    after_write = c.code == 0x30 && drive.unwritable.count(c.lba) == 0;
  }
  EXPECT_EQ(read_back, (std::vector<uint64_t>{300, 100}));
}

TEST_F(ScriptedRepair, LargerLogicalSectorsAreWrittenWholeWithThePatternRepeated) {
  drive.logical_bytes = 4096;
  drive.bad = {8};
  start();
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1000u);
  const auto writes = watch->writes();
  ASSERT_EQ(writes.size(), 1u);
  ASSERT_EQ(writes[0].data.size(), 4096u);
  const std::u16string pattern = testing_support::repair_pattern();
  for (size_t block = 0; block < 8; ++block)
    EXPECT_EQ(std::memcmp(writes[0].data.data() + 512 * block, pattern.data(), 512), 0) << block;
}

EFIAPI EFI_STATUS no_pages(EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN, EFI_PHYSICAL_ADDRESS*) {
  return EFI_OUT_OF_RESOURCES;
}

TEST_F(ScriptedRepair, WithoutASectorBufferNothingIsWrittenAndEveryBadSectorRemains) {
  drive.bad = {100, 200};
  start();
  const EFI_ALLOCATE_PAGES allocate = tarvik::gBS->AllocatePages;
  tarvik::gBS->AllocatePages = no_pages;
  ToolScreen screen;
  const UINT64 result = run(kRecover, screen);
  tarvik::gBS->AllocatePages = allocate;
  EXPECT_EQ(result, 1001u);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 100", "Error #002 in sector 200",
                                 "# Bad sectors found =\t = 2 #",
                                 "Cannot allocate the sector buffer (Out of Resources): nothing was written.",
                                 "# Bad sectors found =\t 2 #", "# 2 Bad Sectors remain(s) #"}));
  EXPECT_TRUE(watch->writes().empty());
}

TEST_F(ScriptedRepair, AnErrorOtherThanUncEndsTheScanWithWhatWasFoundBeforeIt) {
  drive.aborts_at = 165;
  start();
  ToolScreen check;
  EXPECT_EQ(run(kCheck, check), 1000u);
  EXPECT_EQ(check.lines, (Lines{"Error different of UNC.", "Cannot continue testing. Error Device Error",
                                "# No bad sector found #"}));
  EXPECT_EQ(watch->of(0x40).back().lba, 160u);

  drive.bad = {50};
  ToolScreen recover;
  EXPECT_EQ(run(kRecover, recover), 1000u);
  EXPECT_EQ(recover.boxes.back().first, 4);
  EXPECT_EQ(written(), std::vector<uint64_t>{50});
}

TEST_F(ScriptedRepair, AFailingSectorNamedOutsideTheCommandIsNotTrustedNorWritten) {
  drive.bad = {40};
  drive.reports_failing_at = 7;  // in a chunk already verified
  start();
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1000u);
  EXPECT_EQ(screen.lines, (Lines{"Error different of UNC.", "Cannot continue testing. Error Device Error",
                                 "# No bad sector found #"}));
  EXPECT_TRUE(watch->writes().empty());
}

TEST_F(ScriptedRepair, TheWarningComesAtOneAndAQuarterTimesTheThresholdOrWithoutTheAttribute) {
  start();
  const auto first_box = [&]() {
    ToolScreen screen;
    screen.answers = {kNo};
    EXPECT_EQ(run(kCheck, screen), 1003u);
    return screen.boxes.at(0).first;
  };
  EXPECT_EQ(first_box(), 2);  // 100 against 36
  drive.reallocated_value = 45;
  EXPECT_EQ(first_box(), 1);  // 45 x 100 = 36 x 125
  drive.reallocated_value = 46;
  EXPECT_EQ(first_box(), 2);
  drive.reallocated_value.reset();
  drive.reallocated_threshold.reset();
  EXPECT_EQ(first_box(), 1);  // neither listed: both 0
  drive.smart_read_fails = true;
  EXPECT_EQ(first_box(), 2);  // the drive cannot tell
}

TEST_F(ScriptedRepair, ADriveThatRefusesWriteUncorrectableEndsTheOperationWith1004) {
  drive.refuses_write_uncorrectable = true;
  start();
  ToolScreen screen;
  EXPECT_EQ(run(kWriteUncorrectable, screen), 1004u);
  ASSERT_EQ(screen.lines.size(), 2u);
  EXPECT_EQ(screen.lines[0].rfind("Writting to LBA ", 0), 0u);
  EXPECT_EQ(screen.lines[1], "Error in WriteUncorrectable");
  EXPECT_EQ(screen.progress, std::vector<UINT64>{0});
}

TEST(WriteUncorrectable, SectorsToMarkCoverTheWholeDriveAndNeverSector0) {
  TestMachine machine;
  ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  const tarvik::DiagCommonProtocol& common = *tarvik::gDiagCommon;
  // Below 2^31 sectors it is the one draw RandomRange(1, N - 1) gives.
  common.RandomInit(7);
  std::vector<INT32> expected;
  for (int i = 0; i < 50; ++i) expected.push_back(common.RandomRange(1, 999));
  common.RandomInit(7);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(tarvik::RandomSectorToMark(common, 1000), UINT64(expected[i]));
  EXPECT_EQ(tarvik::RandomSectorToMark(common, 2), 1u);

  const UINT64 total = 1ULL << 40;
  UINT64 highest = 0;
  for (int i = 0; i < 200; ++i) {
    const UINT64 lba = tarvik::RandomSectorToMark(common, total);
    EXPECT_GE(lba, 1u);
    EXPECT_LT(lba, total);
    highest = std::max(highest, lba);
  }
  EXPECT_GT(highest, total / 2);
}

}  // namespace
