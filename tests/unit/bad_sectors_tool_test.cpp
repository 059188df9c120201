// The bad-sector tool on the simulated machine's drives: the scan, the
// repair, the warning, write uncorrectable, cancelling, the rows and the
// recovery log, with every command the drive received on record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "badsector/bad_sectors_tool.h"
#include "core/locate.h"
#include "hostfw/ata_controller.h"
#include "log/log_protocol.h"
#include "storage/drive_discovery.h"
#include "tests/unit/bad_sector_tool_harness.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using testing_support::AtaCommand;
using testing_support::CommandWatch;
using testing_support::TestMachine;
using testing_support::ToolBench;
using testing_support::ToolScreen;
using testing_support::kCheck;
using testing_support::kNo;
using testing_support::kRecover;
using testing_support::kWriteUncorrectable;
using Lines = std::vector<std::string>;


class BadSectorsTool : public ::testing::Test {
 protected:
  void start(std::vector<hostfw::DriveInfo> drives) {
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) { p.drives = std::move(drives); });
    bench = std::make_unique<ToolBench>(*machine);
    ASSERT_TRUE(bench->start());
    watch = std::make_unique<CommandWatch>((*machine)->ata()->protocol());
  }
  void TearDown() override {
    watch.reset();
    bench.reset();
  }
  bool sector_is_bad(uint64_t lba, uint16_t port = 1) { return (*machine)->ata()->sector_is_bad(port, lba); }
  // The sectors each READ VERIFY started at.
  std::vector<uint64_t> verified_from() { return watch->read_lbas(); }

  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<ToolBench> bench;
  std::unique_ptr<CommandWatch> watch;
};

TEST_F(BadSectorsTool, A28BitDriveIsVerified16SectorsAtATimeAndTheScanGoesOnRightAfterABadSector) {
  start({storage_bench::drive(1, 4096, {{1000, 1000}})});
  ToolScreen screen;
  EXPECT_EQ(bench->run(kCheck, screen), 1001u);
  EXPECT_EQ(screen.boxes, (std::vector<std::pair<int, std::string>>{
                              {2, "This test will take about one hour to run. Do you want to proceed with test "
                                  "execution?"}}));
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 1000", "# Bad sectors found =\t 1 #"}));
  std::vector<uint64_t> expected;
  for (uint64_t lba = 0; lba <= 992; lba += 16) expected.push_back(lba);
  for (uint64_t lba = 1001; lba < 4096; lba += 16) expected.push_back(lba);
  EXPECT_EQ(verified_from(), expected);
  for (const AtaCommand& read : watch->of(0x40)) EXPECT_EQ(read.count, read.lba == 4089 ? 7u : 16u);
  // A report before the first command and one after each, the last 100.
  ASSERT_EQ(screen.progress.size(), expected.size() + 1);
  EXPECT_EQ(screen.progress.front(), 0u);
  EXPECT_EQ(screen.progress.back(), 100u);
  EXPECT_TRUE(watch->writes().empty());
}

TEST_F(BadSectorsTool, A48BitDriveIsVerified65536SectorsAtATimeAndItsFailingSectorReadInFull) {
  const uint64_t bad = 0x123456789, sectors = 0x123460000;
  start({storage_bench::drive(1, sectors, {{bad, bad}})});
  ToolScreen screen;
  EXPECT_EQ(bench->run(kCheck, screen), 1001u);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 4886718345", "# Bad sectors found =\t 1 #"}));
  const auto reads = watch->of(0x42);
  ASSERT_GT(reads.size(), 2u);
  EXPECT_EQ(reads[1].lba, 65536u);
  EXPECT_EQ(reads[1].count, 0u);  // 65536 goes out as 0
  const auto starts = verified_from();
  EXPECT_NE(std::find(starts.begin(), starts.end(), bad + 1), starts.end());
  EXPECT_EQ(screen.progress.back(), 100u);
}

TEST_F(BadSectorsTool, RecoveryRewritesEachBadSectorNewestFirstWithThePatternAndNothingElse) {
  start({storage_bench::drive(1, 4096, {{1000, 1000}, {2000, 2001}})});
  ToolScreen screen;
  EXPECT_EQ(bench->run(kRecover, screen), 1000u);
  ASSERT_EQ(screen.boxes.size(), 3u);
  EXPECT_EQ(screen.boxes[1], (std::pair<int, std::string>{
                                 2, "Are you sure you want to continue with the Sector Recovery?"}));
  EXPECT_EQ(screen.boxes[2].first, 4);
  EXPECT_EQ(screen.lines, (Lines{"Error #001 in sector 1000", "Error #002 in sector 2000", "Error #003 in sector 2001",
                                 "# Bad sectors found =\t = 3 #", "Trying to repair the sector 2001",
                                 "Corrected sector 2001", "Trying to repair the sector 2000", "Corrected sector 2000",
                                 "Trying to repair the sector 1000", "Corrected sector 1000",
                                 "# Bad sectors found =\t 3 #", "# Bad sectors recovered: 3 #"}));
  // Each write is one sector of the pattern (the Repair tests check its bytes).
  std::vector<uint64_t> written;
  for (const AtaCommand& w : watch->writes()) written.push_back(w.lba);
  const std::vector<uint64_t> expected_lbas = {2001, 2000, 1000};
  EXPECT_EQ(written, expected_lbas);
  for (uint64_t lba : expected_lbas) EXPECT_FALSE(sector_is_bad(lba));

  // The drive has remapped them: a second check finds nothing and writes nothing.
  watch->commands.clear();
  ToolScreen again;
  EXPECT_EQ(bench->run(kCheck, again), 1000u);
  EXPECT_EQ(again.lines, Lines{"# No bad sector found #"});
  EXPECT_TRUE(watch->writes().empty());
}

TEST_F(BadSectorsTool, DecliningTheRecoveryLeavesTheDriveUntouched) {
  start({storage_bench::drive(1, 4096, {{1000, 1000}})});
  ToolScreen screen;
  screen.answers = {EFI_SUCCESS, EFI_SUCCESS, kNo};
  EXPECT_EQ(bench->run(kRecover, screen, 0, false), 1003u);
  EXPECT_EQ(screen.lines,
            (Lines{"Error #001 in sector 1000", "# Bad sectors found =\t 1 #", "Test canceled by User."}));
  EXPECT_TRUE(watch->writes().empty());
  EXPECT_TRUE(sector_is_bad(1000));
}

TEST_F(BadSectorsTool, AFailingDriveIsWarnedAboutFirstAndARefusalEndsTheRun) {
  hostfw::DriveInfo failing = storage_bench::drive(1, 4096, {{1000, 1000}}, true);
  failing.smart_enabled = false;
  failing.reallocated_sectors = 1720;  // attribute 5 worn down to below 1.25 times its threshold
  start({failing});
  const std::string warning =
      "Your storage device indicates an imminent failure. You must backup your data and replace your storage "
      "device.";
  ToolScreen refused;
  refused.answers = {kNo};
  EXPECT_EQ(bench->run(kRecover, refused), 1003u);
  EXPECT_EQ(refused.boxes, (std::vector<std::pair<int, std::string>>{{1, warning}}));
  EXPECT_TRUE(verified_from().empty());
  // SMART was off: switched on for the reading and off again.
  std::vector<uint8_t> smart;
  for (const AtaCommand& c : watch->of(0xB0)) smart.push_back(c.features);
  EXPECT_EQ(smart, (std::vector<uint8_t>{0xD8, 0xD0, 0xD1, 0xD9}));

  ToolScreen accepted;
  EXPECT_EQ(bench->run(kCheck, accepted), 1001u);
  ASSERT_EQ(accepted.boxes.size(), 2u);
  EXPECT_EQ(accepted.boxes[0].first, 1);
  EXPECT_EQ(accepted.boxes[1].first, 2);
}

TEST_F(BadSectorsTool, WriteUncorrectableHasNoNameButMarksFiveSectorsThroughIndex2) {
  start({storage_bench::drive(1, 4096)});
  CHAR16* name = nullptr;
  EXPECT_EQ(bench->tool->GetAlgorithmName(nullptr, 2, &name), EFI_ABORTED);
  EXPECT_EQ(bench->tool->GetAlgorithmCount(nullptr), 2u);

  ToolScreen screen;
  EXPECT_EQ(bench->run(kWriteUncorrectable, screen), 1000u);
  EXPECT_EQ(screen.boxes.size(), 1u);
  EXPECT_EQ(screen.boxes[0].first, 2);
  EXPECT_EQ(screen.progress, (std::vector<UINT64>{0, 0, 20, 40, 60, 80, 100}));
  const auto marks = watch->writes();
  ASSERT_EQ(marks.size(), 5u);
  ASSERT_EQ(screen.lines.size(), 5u);
  for (size_t i = 0; i < marks.size(); ++i) {
    EXPECT_EQ(marks[i].code, 0x45);
    EXPECT_EQ(marks[i].features, 0x55);
    EXPECT_EQ(marks[i].count, 1u);
    EXPECT_GE(marks[i].lba, 1u);
    EXPECT_LT(marks[i].lba, 4096u);
    EXPECT_EQ(screen.lines[i], "Writting to LBA " + std::to_string(marks[i].lba));
    EXPECT_TRUE(sector_is_bad(marks[i].lba));
  }
}

TEST_F(BadSectorsTool, CancellingStopsTheScanAtOnceAndNothingIsRepaired) {
  start({storage_bench::drive(1, 4096, {{100, 100}})});
  ToolScreen screen;
  screen.on_progress = [&](UINT64 percent) {
    if (percent >= 50) bench->tool->CancelTool(nullptr);
  };
  EXPECT_EQ(bench->run(kRecover, screen), 1003u);
  EXPECT_EQ(screen.lines,
            (Lines{"Error #001 in sector 100", "# Bad sectors found =\t 1 #", "Test canceled by User."}));
  EXPECT_EQ(screen.boxes.size(), 2u);  // the confirmations; no recovery question
  EXPECT_EQ(screen.progress.back(), 50u);
  EXPECT_LE(verified_from().back(), 2048u);
  EXPECT_TRUE(watch->writes().empty());
}

// A cancel while the repair writes: the sector in hand is finished, no
// other is touched.
TEST_F(BadSectorsTool, CancellingDuringTheRepairWritesNoFurtherSector) {
  start({storage_bench::drive(1, 4096, {{1000, 1000}, {2000, 2000}})});
  watch->answer = [&](EFI_ATA_PASS_THRU_COMMAND_PACKET&, UINT16, const testing_support::AtaInterposer::Forward& drive) {
    if (!watch->writes().empty()) bench->tool->CancelTool(nullptr);
    return drive();
  };
  ToolScreen screen;
  EXPECT_EQ(bench->run(kRecover, screen), 1003u);
  ASSERT_EQ(watch->writes().size(), 1u);
  EXPECT_EQ(watch->writes()[0].lba, 2000u);
  EXPECT_TRUE(sector_is_bad(1000));
}

TEST_F(BadSectorsTool, OnlyRotatingDrivesAreOfferedWithTheirRowsNamesAndTheSectorsBeingVerified) {
  hostfw::DriveInfo ssd = storage_bench::drive(0, 4096);
  ssd.rotation_rpm = 1;
  start({ssd, storage_bench::drive(1, 2097152)});
  auto& tool = *bench->tool;
  EXPECT_EQ(tool.GetDeviceCount(nullptr), 1u);
  EXPECT_EQ(bench->row(0), (std::pair<std::string, std::string>{"Device 0: Bench BX-1", ""}));
  EXPECT_EQ(bench->row(1), (std::pair<std::string, std::string>{"Size:", "1 GB"}));
  EXPECT_EQ(bench->row(2), (std::pair<std::string, std::string>{"Total sectors:", "2097152"}));
  EXPECT_EQ(bench->row(3), (std::pair<std::string, std::string>{"Testing sectors:", "0 - 0"}));

  CHAR16* label = nullptr;
  CHAR16* value = nullptr;
  EXPECT_EQ(tool.GetRunInfoRow(nullptr, 4, 0, &label, &value), EFI_INVALID_PARAMETER);
  EXPECT_EQ(tool.GetRunInfoRow(nullptr, 0, 1, &label, &value), EFI_INVALID_PARAMETER);
  EXPECT_EQ(tool.GetRunInfoRow(nullptr, 0, 0, nullptr, &value), EFI_ABORTED);
  EXPECT_EQ(tool.GetRunInfoRowCount(nullptr), 4u);

  EXPECT_EQ(tool.GetDeviceName(nullptr, 0, &label), EFI_SUCCESS);
  EXPECT_EQ(testing_support::utf8(label), "BX-1");
  tarvik::gBS->FreePool(label);
  EXPECT_EQ(tool.GetDeviceName(nullptr, 1, &label), EFI_INVALID_PARAMETER);
  EXPECT_EQ(tool.GetResultText(nullptr, 1001, &label), EFI_SUCCESS);
  EXPECT_EQ(testing_support::utf8(label), "Faled to run Recover Bad Sectors Tool.");
  tarvik::gBS->FreePool(label);
  EXPECT_EQ(tool.GetToolName(nullptr, nullptr), EFI_ABORTED);

  ToolScreen screen;
  EXPECT_EQ(bench->run(3, screen), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bench->run(kCheck, screen, 1), EFI_INVALID_PARAMETER);
  // Nothing runs without a way to ask the user.
  EXPECT_EQ(tool.RunTool(nullptr, kCheck, 0, nullptr, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(screen.boxes.empty());

  // The row the screen redraws with each report names the chunk just verified.
  std::vector<std::string> ranges;
  screen.on_progress = [&](UINT64) {
    if (ranges.size() < 2) ranges.push_back(bench->row(3).second);
  };
  EXPECT_EQ(bench->run(kCheck, screen), 1000u);
  EXPECT_EQ(ranges, (std::vector<std::string>{"0 - 0", "0 - 16"}));
  EXPECT_EQ(bench->row(3).second, "2097136 - 2097152");
}

TEST_F(BadSectorsTool, APublicationThatFailsLeavesNothingOfTheToolBehind) {
  machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) { p.drives = {storage_bench::drive(1, 4096)}; });
  bench = std::make_unique<ToolBench>(*machine);
  ASSERT_TRUE(bench->start(false));
  const auto publish = [&] {
    return tarvik::PublishBadSectorsTool((*machine)->image_handle(), bench->drives, bench->strings,
                                         bench->string_count);
  };
  const auto installed = [] {
    return tarvik::LocateService<tarvik::BadSectorsToolProtocol>(tarvik::BadSectorsToolProtocolGuid) != nullptr;
  };
  auto& faults = (*machine)->faults();
  faults.fail_install_of_guid = true;
  faults.install_guid_to_fail = tarvik::BadSectorsToolProtocolGuid;
  EXPECT_EQ(publish(), EFI_OUT_OF_RESOURCES);
  EXPECT_NE(machine->transcript().find(
                "Fail during Bad Sectors Tool Protocol installation in Image Handle: Out of Resources"),
            std::string::npos);
  EXPECT_EQ(bench->drives.ToolDevices, nullptr);
  EXPECT_FALSE(installed());

  // The record itself cannot be had: silent, and again nothing stays.
  faults.fail_install_of_guid = false;
  ASSERT_EQ(tarvik::BuildToolDeviceList(&bench->drives), EFI_SUCCESS);
  faults.fail_allocate_pool_call = (*machine)->memory().pool_allocations() + 1;
  EXPECT_EQ(publish(), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(bench->drives.ToolDevices, nullptr);
  EXPECT_FALSE(installed());
}

}  // namespace
