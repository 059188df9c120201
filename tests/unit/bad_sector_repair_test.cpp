// The bad-sector repair on a simulated 28-bit rotating drive whose machine
// reports a failed command as OVMF of Debian 12's age does: EFI_SUCCESS,
// the error only in the status block. Sectors that refuse a write or stay
// unreadable after one, an error other than UNC, 4096-byte sectors, no
// memory for the sector buffer, the warning around attribute 5's threshold
// and a drive that refuses WRITE UNCORRECTABLE. Every write the tool sends
// is checked against the sectors its scan found.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <set>

#include "badsector/write_uncorrectable.h"
#include "core/diag_common.h"
#include "hostfw/ata_controller.h"
#include "tests/unit/bad_sector_tool_harness.h"
#include "tests/unit/storage_algorithm_bench.h"

namespace {

using testing_support::AtaCommand;
using testing_support::AtaInterposer;
using testing_support::CommandWatch;
using testing_support::TestMachine;
using testing_support::ToolBench;
using testing_support::ToolScreen;
using testing_support::kCheck;
using testing_support::kNo;
using testing_support::kRecover;
using testing_support::kWriteUncorrectable;
using Lines = std::vector<std::string>;

class Repair : public ::testing::Test {
 protected:
  // A fresh machine with one rotating drive of 4096 sectors, changed by edit.
  void start(const std::function<void(hostfw::DriveInfo&)>& edit = nullptr) {
    TearDown();
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) {
      p.ata_error_report = hostfw::AtaErrorReport::kSuccess;
      p.drives = {storage_bench::drive(1, 4096)};
      if (edit) edit(p.drives[0]);
    });
    bench = std::make_unique<ToolBench>(*machine);
    ASSERT_TRUE(bench->start());
    watch = std::make_unique<CommandWatch>(controller());
  }
  void TearDown() override {
    watch.reset();
    bench.reset();
    machine.reset();
  }
  EFI_ATA_PASS_THRU_PROTOCOL* controller() { return (*machine)->ata()->protocol(); }
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

  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<ToolBench> bench;
  std::unique_ptr<CommandWatch> watch;
};

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
  // Each write that went through is read back, alone.
  std::vector<uint64_t> read_back;
  bool after_write = false;
  for (const AtaCommand& c : watch->commands) {
    if (c.code == 0x40 && after_write) {
      read_back.push_back(c.lba);
      EXPECT_EQ(c.count, 1u);
    }
    after_write = c.code == 0x30 && c.lba != 200;
  }
  EXPECT_EQ(read_back, (std::vector<uint64_t>{300, 100}));
}

// Firmware that leaves the LBA registers zero reports every uncorrectable
// error at LBA 0: the repair writes sector 0 only when it really fails.
TEST_F(Repair, ASectorReportedWithoutItsAddressIsWrittenOnlyWhenItFailsAgain) {
  struct Case {
    uint64_t bad;
    const char* line;  // what the repair says of sector 0
    uint64_t writes;
  };
  for (const Case c : {Case{5, "Sector 0 reads well: not written", 0}, Case{0, "Corrected sector 0", 1}}) {
    start([&](hostfw::DriveInfo& d) {
      d.unc_lba_unreported = true;
      d.bad_sectors = {{c.bad, c.bad}};
    });
    ToolScreen screen;
    EXPECT_EQ(run(kRecover, screen), 1000u) << c.bad;
    EXPECT_EQ(screen.lines[0], "Error #001 in sector 0") << c.bad;
    EXPECT_NE(std::find(screen.lines.begin(), screen.lines.end(), c.line), screen.lines.end()) << c.bad;
    const hostfw::AtaCommandCounts& counts = (*machine)->ata()->counts(1);
    EXPECT_EQ(counts.command(0x30), c.writes) << c.bad;
    EXPECT_EQ(counts.writes_at(0), c.writes) << c.bad;
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
  const std::u16string pattern = testing_support::repair_pattern();
  for (size_t block = 0; block < 8; ++block)
    EXPECT_EQ(std::memcmp(writes[0].data.data() + 512 * block, pattern.data(), 512), 0) << block;
}

EFIAPI EFI_STATUS no_pages(EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN, EFI_PHYSICAL_ADDRESS*) {
  return EFI_OUT_OF_RESOURCES;
}

TEST_F(Repair, WithoutASectorBufferNothingIsWrittenAndEveryBadSectorRemains) {
  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{100, 100}, {200, 200}}; });
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

TEST_F(Repair, AnErrorOtherThanUncEndsTheScanWithWhatWasFoundBeforeIt) {
  start([](hostfw::DriveInfo& d) { d.abort_sectors = {{165, 165}}; });
  ToolScreen check;
  EXPECT_EQ(run(kCheck, check), 1000u);
  EXPECT_EQ(check.lines, (Lines{"Error different of UNC.", "Cannot continue testing. Error Device Error",
                                "# No bad sector found #"}));
  EXPECT_EQ(watch->of(0x40).back().lba, 160u);

  start([](hostfw::DriveInfo& d) {
    d.abort_sectors = {{165, 165}};
    d.bad_sectors = {{50, 50}};
  });
  ToolScreen recover;
  EXPECT_EQ(run(kRecover, recover), 1000u);
  EXPECT_EQ(recover.boxes.back().first, 4);
  EXPECT_EQ(written(), std::vector<uint64_t>{50});
}

TEST_F(Repair, AFailingSectorNamedOutsideTheCommandIsNotTrustedNorWritten) {
  start([](hostfw::DriveInfo& d) { d.bad_sectors = {{40, 40}}; });
  // The drive names sector 7, in a chunk already verified, once: a tool
  // that took its word would go on and find sector 40 as well.
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
  ToolScreen screen;
  EXPECT_EQ(run(kRecover, screen), 1000u);
  EXPECT_EQ(screen.lines, (Lines{"Error different of UNC.", "Cannot continue testing. Error Device Error",
                                 "# No bad sector found #"}));
  EXPECT_TRUE(watch->writes().empty());
}

TEST_F(Repair, TheWarningComesAtOneAndAQuarterTimesTheThresholdOrWithoutTheAttribute) {
  // With 100 spare sectors attribute 5's value is 100 less the reallocated
  // count; its threshold is 36.
  const auto first_box = [&](const std::function<void(hostfw::DriveInfo&)>& edit) {
    start([&](hostfw::DriveInfo& d) {
      d.spare_sectors = 100;
      edit(d);
    });
    ToolScreen screen;
    screen.answers = {kNo};
    EXPECT_EQ(run(kCheck, screen), 1003u);
    return screen.boxes.empty() ? 0 : screen.boxes[0].first;
  };
  EXPECT_EQ(first_box([](hostfw::DriveInfo&) {}), 2);                                 // 100 against 36
  EXPECT_EQ(first_box([](hostfw::DriveInfo& d) { d.reallocated_sectors = 55; }), 1);  // 45 x 100 = 36 x 125
  EXPECT_EQ(first_box([](hostfw::DriveInfo& d) { d.reallocated_sectors = 54; }), 2);  // 46
  EXPECT_EQ(first_box([](hostfw::DriveInfo& d) { d.absent_attributes = {5}; }), 1);   // neither listed: both 0

  // A drive whose SMART data cannot be read cannot tell.
  start();
  watch->answer = [](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const auto& drive) {
    const bool smart_data = packet.Acb->AtaCommand == 0xB0 && packet.Acb->AtaFeatures == 0xD0;
    return smart_data ? AtaInterposer::Abort(packet, EFI_SUCCESS) : drive();
  };
  ToolScreen screen;
  screen.answers = {kNo};
  EXPECT_EQ(run(kCheck, screen), 1003u);
  ASSERT_FALSE(screen.boxes.empty());
  EXPECT_EQ(screen.boxes[0].first, 2);
}

TEST_F(Repair, ADriveThatRefusesWriteUncorrectableEndsTheOperationWith1004) {
  start();
  // Refused as this machine reports every error: in the status block only.
  watch->answer = [](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const auto& drive) {
    return packet.Acb->AtaCommand == 0x45 ? AtaInterposer::Abort(packet, EFI_SUCCESS) : drive();
  };
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
  // How the draw is made is the random LBA tests'; here, that it never names sector 0.
  common.RandomInit(7);
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
