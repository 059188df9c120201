// The storage test on a drive that stops answering during its second
// algorithm: every algorithm still ends with a state on the run screen, the
// advice box comes, the log names the communication failure of each and
// is saved, and the run never waits longer than each command's timeout.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "hostfw/ata_controller.h"
#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::trimmed;
using testing_support::file_text;
using testing_support::ApplicationSetup;
using testing_support::run_to_reset;
using testing_support::TestMachine;

size_t occurrences(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(SilentDriveRun, EveryAlgorithmEndsWithAStateAndTheLogSaysTheDriveStoppedAnswering) {
  TestMachine machine(
      "wait \"Main Screen\"; key Down; key Enter; wait \"Select Algorithms\"; key Enter;"
      "wait 600 \"Problems have been identified\"; key Enter; wait \"F3 = view log\"; snap \"outcome\";"
      "key F3; wait \"F2 = save log\"; key F2; wait \"Save Log\"; key Enter; wait \"Log saved successfully!\";"
      "key Enter; key Esc; key Esc; wait \"Main Screen\"; key Down 2; key Enter",
      [](hostfw::Profile& p) {
        hostfw::DriveInfo d;
        d.port = 0;
        d.model = "Korvan HD-500";
        d.serial = "KHD500000001";
        d.sectors = 4000000;
        d.rotation_rpm = 7200;
        // Discovery's three commands and the status test's eleven polls are
        // answered, then the short self-test's first four commands.
        d.stop_answering_after = 3 + 11 + 4;
        p.drives = {d};
      });
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);

  const hostfw::ScreenGrid& outcome = machine->console().snapshot("outcome").grid;
  // The drive self-test's refused start is silence, not a refusal: FAILED.
  const std::vector<std::string> states = {
      "Korvan HD-500",               "Smart Status         PASSED", "Smart Short Selftest FAILED",
      "Drive Self Test      FAILED", "Random Seek Test     FAILED", "Funnel Seek Test     FAILED",
      "Targeted Read Test   FAILED"};
  for (int i = 0; i < static_cast<int>(states.size()); ++i)
    EXPECT_EQ(trimmed(outcome.text_at(55, 7 + i, 42)), states[i]);

  const std::string saved = file_text(machine.directory() / "volumes" / "TARVIK" / "Log" / "Log.log");
  EXPECT_EQ(occurrences(saved, " ERROR COMMUNICATION_FAILURE\n"), 5u) << saved;
  EXPECT_EQ(occurrences(saved, " FAILURE "), 5u) << saved;
  EXPECT_EQ(saved.find("READ_SECTOR_ERROR"), std::string::npos) << "no sector is blamed";
  // The silent drive got one command per algorithm that went on, and nothing
  // was written to it.
  const hostfw::AtaCommandCounts& counts = machine->ata()->counts(0);
  EXPECT_EQ(counts.total, 3u + 11 + 4 + 5);
  EXPECT_TRUE(counts.sector_writes.empty());
  EXPECT_EQ(counts.command(0x30) + counts.command(0x34) + counts.command(0x45), 0u);
}

}  // namespace
