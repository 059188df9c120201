// The bad-sector tool on the simulated machine's rotating drives: the scan,
// the repair, the warning, write uncorrectable, cancelling and a failed
// publication, with every command the drive received on record, on a
// machine that reports a failed command as OVMF of Debian 12's age does:
// EFI_SUCCESS, the error only in the status block (the screen tests run the
// tool where it reports EFI_DEVICE_ERROR). Every write a check or a repair
// sends is checked against the sectors its scan reported.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <set>

#include "badsector/bad_sectors_tool.h"
#include "badsector/write_uncorrectable.h"
#include "core/diag_common.h"
#include "core/locate.h"
#include "hostfw/ata_controller.h"
#include "storage/drive_discovery.h"
#include "tests/unit/bad_sector_tool_harness.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using namespace testing_support;
using Lines = std::vector<std::string>;
using Edit = std::function<void(hostfw::DriveInfo&)>;

// One rotating drive of 4096 sectors, changed by edit, on a machine that
// reports failed commands as OVMF of Debian 12's age does.
class Repair : public ::testing::Test {
 protected:
  void start(const Edit& edit = nullptr) {
    TearDown();  // one machine at a time
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) {
      p.ata_error_report = hostfw::AtaErrorReport::kSuccess;
      p.drives = {storage_bench::drive(1, 4096)};
      if (edit) edit(p.drives[0]);
    });
    bench = std::make_unique<ToolBench>(*machine);
    ASSERT_TRUE(bench->start());
    watch = std::make_unique<AtaInterposer>((*machine)->ata()->protocol());
  }
  void TearDown() override {
    watch.reset();
    bench.reset();
    machine.reset();
  }
  // Runs the tool; a check writes nothing, and every write a repair sent
  // is one sector that the run's scan reported unreadable.
  UINT64 run(UINT64 operation, ToolScreen& screen, bool progress = true) {
    watch->commands.clear();
    const UINT64 result = bench->run(operation, screen, 0, progress);
    if (operation == kWriteUncorrectable) return result;
    std::set<uint64_t> reported;
    for (const std::string& line : screen.lines)
      if (line.rfind("Error #", 0) == 0) reported.insert(std::stoull(line.substr(line.rfind(' ') + 1)));
    for (const AtaCommand& w : watch->writes())
      EXPECT_TRUE(operation == kRecover && w.code == 0x30 && w.count == 1 && reported.count(w.lba) == 1)
          << "wrote sector " << w.lba;
    return result;
  }
  std::vector<uint64_t> written() {
    std::vector<uint64_t> lbas;
    for (const AtaCommand& w : watch->writes()) lbas.push_back(w.lba);
    return lbas;
  }
  bool sector_is_bad(uint64_t lba) { return (*machine)->ata()->sector_is_bad(1, lba); }

  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<ToolBench> bench;
  std::unique_ptr<AtaInterposer> watch;
};

// The scan, cancelling and publication cases; the same machine.
using BadSectorsTool = Repair;

TEST_F(BadSectorsTool, A28BitDriveIsVerified16SectorsAtATimeAndTheScanGoesOnRightAfterABadSector) {
  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{1000, 1000}}; });
  ToolScreen screen;
  EXPECT_EQ(run(kCheck, screen), 1001u);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 1000", "# Bad sectors found =\t 1 #"}));
  std::vector<uint64_t> expected;
  for (uint64_t lba = 0; lba <= 992; lba += 16) expected.push_back(lba);
  for (uint64_t lba = 1001; lba < 4096; lba += 16) expected.push_back(lba);
  EXPECT_EQ(watch->read_lbas(), expected);
  for (const AtaCommand& read : watch->of(0x40)) EXPECT_EQ(read.count, read.lba == 4089 ? 7u : 16u);
  // A report before the first command and one after each.
  EXPECT_EQ(screen.progress.size(), expected.size() + 1);
}

TEST_F(BadSectorsTool, RecoveryRewritesEachBadSectorNewestFirstWithThePatternAndNothingElse) {
  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{1000, 1000}, {2000, 2001}}; });
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1000u);
  ASSERT_EQ(screen.boxes.size(), 3u);
  EXPECT_EQ(screen.boxes[2].first, 4);
  EXPECT_EQ(screen.lines.back(), "# Bad sectors recovered: 3 #");
  EXPECT_EQ(written(), (std::vector<uint64_t>{2001, 2000, 1000}));
  for (uint64_t lba : {1000, 2000, 2001}) EXPECT_FALSE(sector_is_bad(lba));
}

// Saying no to the recovery (with no progress callback), or cancelling
// during the scan: the run ends at once with what was found, nothing written.
TEST_F(BadSectorsTool, DecliningOrCancellingTheRecoveryLeavesTheDriveUntouched) {
  for (const bool cancel : {false, true}) {
    SCOPED_TRACE(cancel ? "cancelled" : "declined");
    start([](hostfw::DriveInfo& d) { d.bad_sectors = {{100, 100}}; });
    ToolScreen screen;
    screen.answers = {EFI_SUCCESS, EFI_SUCCESS, kNo};
    screen.on_progress = [&](UINT64 percent) {
      if (percent >= 50) bench->tool->CancelTool(nullptr);
    };
    EXPECT_EQ(run(kRecover, screen, cancel), 1003u);
    EXPECT_EQ(screen.lines,
              (Lines{"Error #001 in sector 100", "# Bad sectors found =\t 1 #", "Test canceled by User."}));
    EXPECT_TRUE(watch->writes().empty());
    if (!cancel) continue;
    EXPECT_EQ(screen.boxes.size(), 2u);  // the confirmations; no recovery question
    EXPECT_EQ(screen.progress.back(), 50u);
    EXPECT_LE(watch->read_lbas().back(), 2048u);
  }
}

// A cancel while the repair writes: the sector in hand is finished, no
// other is touched.
TEST_F(BadSectorsTool, CancellingDuringTheRepairWritesNoFurtherSector) {
  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{1000, 1000}, {2000, 2000}}; });
  watch->answer = [&](EFI_ATA_PASS_THRU_COMMAND_PACKET&, UINT16, const AtaInterposer::Forward& drive) {
    if (!watch->writes().empty()) bench->tool->CancelTool(nullptr);
    return drive();
  };
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1003u);
  EXPECT_EQ(written(), std::vector<uint64_t>{2000});
}

TEST_F(BadSectorsTool, APublicationThatFailsLeavesNothingOfTheToolBehind) {
  machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) { p.drives = {storage_bench::drive(1, 4096)}; });
  bench = std::make_unique<ToolBench>(*machine);
  ASSERT_TRUE(bench->start(false));
  (*machine)->faults().fail_install_of_guid = true;
  (*machine)->faults().install_guid_to_fail = tarvik::BadSectorsToolProtocolGuid;
  EXPECT_EQ(tarvik::PublishBadSectorsTool((*machine)->image_handle(), bench->drives, bench->strings,
                                          bench->string_count),
            EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(bench->drives.ToolDevices, nullptr);
  EXPECT_EQ(tarvik::LocateService<tarvik::BadSectorsToolProtocol>(tarvik::BadSectorsToolProtocolGuid), nullptr);
  EXPECT_NE(machine->transcript().find(
                "Fail during Bad Sectors Tool Protocol installation in Image Handle: Out of Resources"),
            std::string::npos);
}

TEST_F(Repair, SectorsThatRefuseTheWriteOrStayBadRemainAndTheOthersAreRepaired) {
  start([](hostfw::DriveInfo& d) {
    d.bad_sectors = {{100, 100}};
    d.unwritable_sectors = {{200, 200}};
    d.unrecoverable_sectors = {{300, 300}};
  });
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1001u);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 100", "Error #002 in sector 200", "Error #003 in sector 300",
                                 "# Bad sectors found =\t = 3 #", "Trying to repair the sector 300",
                                 "Sector 300 cannot be recovered", "Trying to repair the sector 200",
                                 "Sector 200 cannot be written", "Trying to repair the sector 100",
                                 "Corrected sector 100", "# Bad sectors found =\t 3 #", "# Bad sectors recovered: 1 #",
                                 "# 2 Bad Sectors remain(s) #"}));
  EXPECT_EQ(written(), (std::vector<uint64_t>{300, 200, 100}));
}

// Firmware that leaves the LBA registers zero reports every uncorrectable
// error at LBA 0: the repair writes sector 0 only when it really fails.
TEST_F(Repair, ASectorReportedWithoutItsAddressIsWrittenOnlyWhenItFailsAgain) {
  // The bad sector, what the repair says of sector 0 and how often it is written.
  for (const auto& [bad, line, writes] : {std::tuple{5ull, "Sector 0 reads well: not written", 0ull},
                                          std::tuple{0ull, "Corrected sector 0", 1ull}}) {
    SCOPED_TRACE(bad);
    start([&](hostfw::DriveInfo& d) {
      d.unc_lba_unreported = true;
      d.bad_sectors = {{bad, bad}};
    });
    ToolScreen screen;
    EXPECT_EQ(run(kRecover, screen), 1000u);
    EXPECT_EQ(screen.lines[0], "Error #001 in sector 0");
    EXPECT_NE(std::find(screen.lines.begin(), screen.lines.end(), line), screen.lines.end());
    EXPECT_EQ((*machine)->ata()->counts(1).command(0x30), writes);
    EXPECT_EQ((*machine)->ata()->counts(1).writes_at(0), writes);
  }
}

TEST_F(Repair, LargerLogicalSectorsAreWrittenWholeWithThePatternRepeated) {
  start([](hostfw::DriveInfo& d) {
    d.logical_sector_bytes = d.physical_sector_bytes = 4096;
    d.bad_sectors = {{8, 8}};
  });
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1000u);
  const auto writes = watch->writes();
  ASSERT_EQ(writes.size(), 1u);
  ASSERT_EQ(writes[0].data.size(), 4096u);
  // Each 512 bytes: "BAD_SECTOR_REPAIRED_" repeated to 255 characters and a terminator.
  std::u16string pattern;
  while (pattern.size() < 256) pattern += u"BAD_SECTOR_REPAIRED_";
  pattern[255] = 0;
  for (size_t block = 0; block < 8; ++block)
    EXPECT_EQ(std::memcmp(writes[0].data.data() + 512 * block, pattern.data(), 512), 0) << block;
}

// An error other than UNC ends the scan; so does a failing sector the drive
// names outside the command (sector 7, in a chunk already verified), whose
// word a tool that took it would go on from to find sector 40 as well.
TEST_F(Repair, AnErrorOtherThanUncOrASectorNamedOutsideTheCommandEndsTheScan) {
  const Lines ended = {"Error different of UNC.", "Cannot continue testing. Error Device Error",
                       "# No bad sector found #"};
  start([](hostfw::DriveInfo& d) { d.abort_sectors = {{165, 165}}; });
  ToolScreen check;
  EXPECT_EQ(run(kCheck, check), 1000u);
  EXPECT_EQ(check.lines, ended);
  EXPECT_EQ(watch->of(0x40).back().lba, 160u);

  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{40, 40}}; });
  bool misreported = false;
  watch->answer = [&](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const auto& drive) {
    const EFI_STATUS status = drive();
    if ((packet.Asb->AtaError & 0x40) != 0 && !misreported) {
      misreported = true;
      packet.Asb->AtaSectorNumber = 7;
      packet.Asb->AtaCylinderLow = packet.Asb->AtaCylinderHigh = 0;
      packet.Asb->AtaDeviceHead &= 0xF0;
    }
    return status;
  };
  ToolScreen misnamed;
  EXPECT_EQ(run(kRecover, misnamed), 1000u);
  EXPECT_EQ(misnamed.lines, ended);
  EXPECT_TRUE(watch->writes().empty());

  // What the scan found before the error is still repaired.
  start([](hostfw::DriveInfo& d) {
    d.abort_sectors = {{165, 165}};
    d.bad_sectors = {{50, 50}};
  });
  ToolScreen recover;
  EXPECT_EQ(run(kRecover, recover), 1000u);
  EXPECT_EQ(written(), std::vector<uint64_t>{50});
}

// The imminent-failure warning comes first; refused, the run ends before
// the scan.
TEST_F(Repair, TheWarningComesAtOneAndAQuarterTimesTheThresholdOrWithoutTheAttribute) {
  // With 100 spare sectors attribute 5's value is 100 less the reallocated
  // count; its threshold is 36.
  ToolScreen screen;
  const auto boxes = [&](const Edit& edit, std::deque<EFI_STATUS> answers = {kNo}) {
    start([&](hostfw::DriveInfo& d) {
      d.spare_sectors = 100;
      edit(d);
    });
    screen = ToolScreen{};
    screen.answers = answers;
    EXPECT_EQ(run(kCheck, screen), 1003u);
    EXPECT_TRUE(watch->read_lbas().empty());
    std::vector<int> kinds;
    for (const auto& box : screen.boxes) kinds.push_back(box.first);
    return kinds;
  };
  using Kinds = std::vector<int>;
  EXPECT_EQ(boxes([](hostfw::DriveInfo&) {}), Kinds{2});                                 // 100 against 36
  EXPECT_EQ(boxes([](hostfw::DriveInfo& d) { d.reallocated_sectors = 55; }), Kinds{1});  // 45 x 100 = 36 x 125
  EXPECT_EQ(screen.boxes[0].second,
            "Your storage device indicates an imminent failure. You must backup your data and replace your storage "
            "device.");
  EXPECT_EQ(boxes([](hostfw::DriveInfo& d) { d.reallocated_sectors = 54; }), Kinds{2});  // 46
  EXPECT_EQ(boxes([](hostfw::DriveInfo& d) { d.absent_attributes = {5}; }), Kinds{1});   // neither listed: both 0
  EXPECT_EQ(boxes([](hostfw::DriveInfo& d) { d.smart_supported = false; }), Kinds{2});   // cannot tell

  // SMART off: switched on for the reading and off again; the warning
  // accepted, the run goes on to its question.
  const Edit smart_off = [](hostfw::DriveInfo& d) {
    d.smart_enabled = false;
    d.reallocated_sectors = 55;
  };
  EXPECT_EQ(boxes(smart_off, {EFI_SUCCESS, kNo}), (Kinds{1, 2}));
  std::vector<uint8_t> smart;
  for (const AtaCommand& c : watch->of(0xB0)) smart.push_back(c.features);
  EXPECT_EQ(smart, (std::vector<uint8_t>{0xD8, 0xD0, 0xD1, 0xD9}));
}

// Write uncorrectable marks five sectors; a drive that refuses it (ending
// the operation with 1004) is the QEMU test's, whose firmware refuses it.
TEST_F(Repair, WriteUncorrectableMarksFiveSectors) {
  start();
  ToolScreen screen;
  EXPECT_EQ(run(kWriteUncorrectable, screen), 1000u);
  EXPECT_EQ(screen.progress, (std::vector<UINT64>{0, 0, 20, 40, 60, 80, 100}));
  const auto marks = watch->writes();
  ASSERT_EQ(marks.size(), 5u);
  ASSERT_EQ(screen.lines.size(), 5u);
  for (size_t i = 0; i < marks.size(); ++i) {
    EXPECT_EQ(marks[i].code, 0x45);
    EXPECT_EQ(marks[i].features, 0x55);
    EXPECT_EQ(marks[i].count, 1u);
    EXPECT_EQ(screen.lines[i], "Writting to LBA " + std::to_string(marks[i].lba));
    EXPECT_TRUE(sector_is_bad(marks[i].lba));
  }
}

TEST(WriteUncorrectable, SectorsToMarkAreNeverSector0) {
  TestMachine machine;
  ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  tarvik::gDiagCommon->RandomInit(7);
  EXPECT_EQ(tarvik::RandomSectorToMark(*tarvik::gDiagCommon, 2), 1u);
  for (int i = 0; i < 200; ++i) {
    const UINT64 lba = tarvik::RandomSectorToMark(*tarvik::gDiagCommon, 1ULL << 40);
    EXPECT_GE(lba, 1u);
    EXPECT_LT(lba, 1ULL << 40);
  }
}

}  // namespace
