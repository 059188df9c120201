// The save dialog, and saving a log where it cannot go. On a stick that is
// all but full the save is refused with the error box, the Log.log the stick
// already held keeps every byte, and the log stays on screen to be saved on
// another volume; on a machine without a volume the dialog says to insert one.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::file_text;
using testing_support::ApplicationSetup;
using testing_support::FakeAlgorithm;
using testing_support::FakeDevice;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;
namespace fs = std::filesystem;

// Earlier runs, one line each, up to 40 bytes short of a mebibyte: less than
// any log takes.
std::string earlier_runs() {
  std::string text;
  for (int run = 0; text.size() < 1024 * 1024 - 400; ++run) text += "+++ earlier run " + std::to_string(run) + "\n";
  text.append(1024 * 1024 - 40 - text.size(), '#');
  return text;
}

constexpr char kToTheSaveDialog[] =
    "wait \"Main Screen\"; key Enter; wait \"F3 = view log\"; key F3; wait \"F2 = save log\"; key F2;";

// One device and one algorithm: the run starts without selection screens.
void run_one_pair(TestMachine& machine) {
  FakeTestModule module(machine->image_handle());
  module.devices = {FakeDevice(u"Disk A")};
  module.algorithms = {FakeAlgorithm(u"Read", u"READ")};
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});
}

TEST(FullVolumeSave, TheRefusedSaveSaysSoKeepsTheOldLogWholeAndTheLogCanGoElsewhere) {
  const std::string before = earlier_runs();
  fs::path full_log, spare_log;
  TestMachine machine(
      std::string(kToTheSaveDialog) + "wait \"Save Log\"; snap \"dialog\"; key Up; snap \"cancel\"; key Down;"
      "key Enter; wait \"Log could not be saved!\"; snap \"refused\"; key Enter; wait \"F2 = save log\";"
      "snap \"log again\"; key F2; wait \"Save Log\"; key Down; key Enter; wait \"Log saved successfully!\";"
      "key Enter; key Esc; wait \"Main Screen\"; key Up; key Enter",
      [&](hostfw::Profile& p) {
        ASSERT_EQ(p.volumes.size(), 2u);
        p.volumes[0].label = "FULL";
        p.volumes[0].size_mib = 1;
        p.volumes[1].size_mib = 15258;  // 16,000,000,000 bytes, as a USB stick sells them
        full_log = fs::path(p.volumes[0].directory) / "Log" / "Log.log";
        spare_log = fs::path(p.volumes[1].directory) / "Log" / "Log.log";
        fs::create_directories(full_log.parent_path());
        std::ofstream(full_log, std::ios::binary) << before;
      });
  run_one_pair(machine);

  const hostfw::ConsoleOut& console = machine->console();
  // Each volume on its row, Cancel a blank row below (Up from the first wraps to it).
  const hostfw::ScreenGrid& dialog = console.snapshot("dialog").grid;
  EXPECT_NE(dialog.row_text(13).find("Device FULL (1 GB)"), std::string::npos);
  EXPECT_NE(dialog.row_text(14).find("Device DATA (15 GB)"), std::string::npos);
  EXPECT_NE(dialog.row_text(16).find("Cancel"), std::string::npos);
  EXPECT_EQ(console.snapshot("cancel").grid.attribute_at(27, 16), 0x1F);
  EXPECT_TRUE(console.snapshot("refused").grid.contains("Error"));
  EXPECT_TRUE(console.snapshot("log again").grid.contains("Tarvik Diagnostic Log")) << "the log is still on screen";

  // Not a byte lost, none added, nothing rewritten.
  EXPECT_EQ(file_text(full_log), before);
  // The same log, whole, on the other volume.
  const std::string saved = file_text(spare_log);
  EXPECT_EQ(saved.substr(0, 4), "+++ ");
  EXPECT_NE(saved.find(" START READ\n"), std::string::npos) << saved;
  EXPECT_TRUE(saved.ends_with("\n--- FAKE\n")) << saved;
}

TEST(FullVolumeSave, WithoutAVolumeTheDialogAsksForOne) {
  TestMachine machine(std::string(kToTheSaveDialog) + "wait \"device and try again.\"; key Enter; key Esc;"
                      "wait \"Main Screen\"; key Up; key Enter",
                      [](hostfw::Profile& p) { p.volumes.clear(); });
  run_one_pair(machine);
}

}  // namespace
