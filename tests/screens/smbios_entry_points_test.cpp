// The machine's identity whichever SMBIOS entry points its firmware
// publishes: the Machine tab and a result code (made from the serial number)
// read the same from a 3.0-only machine, a 2.x-only one and one with both.
#include <gtest/gtest.h>

#include <string>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using hostfw::SmbiosEntryPoints;
using testing_support::ApplicationSetup;
using testing_support::FakeAlgorithm;
using testing_support::FakeDevice;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;

struct Seen {
  std::string machine_tab;  // rows 5 to 25
  std::string result_code;
};

Seen seen_on(SmbiosEntryPoints kind) {
  const auto edit = [kind](hostfw::Profile& p) { p.smbios_entry_points = kind; };
  Seen seen;
  {  // one simulated machine at a time
    TestMachine info("wait \"Main Screen\"; key Right; key Enter; wait \"Machine Information\"; snap \"tab\";"
                     "key Esc; wait \"Main Screen\"; key Left; key Up; key Enter",
                     edit);
    run_to_reset(info, ApplicationSetup{});
    const hostfw::ScreenGrid& tab = info->console().snapshot("tab").grid;
    for (int row = 5; row <= 25; ++row) seen.machine_tab += tab.row_text(row) + "\n";
  }

  // One device and one algorithm: the run starts without selection screens.
  TestMachine run("wait \"Main Screen\"; key Enter; wait \"F3 = view log\"; snap \"outcome\"; key Esc;"
                  "wait \"Main Screen\"; key Up; key Enter",
                  edit);
  FakeTestModule module(run->image_handle());
  module.devices = {FakeDevice(u"Disk A")};
  module.algorithms = {FakeAlgorithm(u"Read", u"READ")};
  run_to_reset(run, ApplicationSetup{.modules = {&module}});
  const hostfw::ScreenGrid& outcome = run->console().snapshot("outcome").grid;
  for (int row = 5; row < 29 && seen.result_code.empty(); ++row)
    if (outcome.row_text(row).find("Result Code:") != std::string::npos) seen.result_code = outcome.row_text(row);
  return seen;
}

TEST(SmbiosEntryPoints, ASmbios3OnlyMachineShowsItsInformationAndResultCodesAsA2xMachine) {
  const Seen old_firmware = seen_on(SmbiosEntryPoints::k2);
  EXPECT_NE(old_firmware.machine_tab.find("KVN7400-2418-0095"), std::string::npos) << old_firmware.machine_tab;
  EXPECT_NE(old_firmware.result_code.find("Result Code: UFK0"), std::string::npos) << old_firmware.result_code;
  for (SmbiosEntryPoints kind : {SmbiosEntryPoints::k3, SmbiosEntryPoints::kBoth}) {
    const Seen seen = seen_on(kind);
    EXPECT_EQ(seen.machine_tab, old_firmware.machine_tab) << static_cast<int>(kind);
    EXPECT_EQ(seen.result_code, old_firmware.result_code) << static_cast<int>(kind);
  }
}

}  // namespace
