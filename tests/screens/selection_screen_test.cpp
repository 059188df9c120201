// Choosing algorithms after Enter on a test: the screen a technician ticks
// entries on, drawn from the module's names. (The device list comes first
// when there are several devices; the run screen's tests go through it.)
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::FakeAlgorithm;
using testing_support::FakeDevice;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;

std::string line(const hostfw::ScreenGrid& grid, int row) {
  return testing_support::trimmed(grid.text_at(30, row, 40));
}

TEST(SelectionScreen, OneDeviceSkipsTheDeviceScreenAndSixAlgorithmsShowTenLinesAllTicked) {
  TestMachine machine(
      "wait \"Main Screen\"; key Enter; wait \"Select Algorithms\"; snap \"algorithms\"; key Space;"
      "snap \"one unticked\"; key Esc; wait \"Main Screen\"; key Up; key Enter");
  FakeTestModule module(machine->image_handle());
  module.test_name = u"Quick Six Test";
  module.devices = {FakeDevice(u"Only Device")};
  for (char16_t n = u'1'; n <= u'6'; ++n) module.algorithms.push_back(FakeAlgorithm(u"Algorithm " + std::u16string(1, n), u"K"));
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});

  const hostfw::ScreenGrid& grid = machine->console().snapshot("algorithms").grid;
  EXPECT_NE(grid.row_text(1).find("Quick Six Test"), std::string::npos);
  EXPECT_NE(grid.row_text(29).find("ESC = exit  Arrow Keys = change option  Space = select/deselect  ENTER = run test"),
            std::string::npos);
  EXPECT_EQ(line(grid, 3), std::string(11, ' ') + "Select Algorithms");  // centred in columns 30 to 69
  // Box from column 29 to 70, rows 4 to 15: six entries, a blank, the all-line, a blank, the confirm line.
  EXPECT_EQ(grid.text_at(29, 4, 1) + grid.text_at(70, 15, 1), "╔╝");
  std::string lines;
  for (int row = 5; row <= 14; ++row) lines += line(grid, row) + "|";
  EXPECT_EQ(lines, "[X] Algorithm 1|[X] Algorithm 2|[X] Algorithm 3|[X] Algorithm 4|[X] Algorithm 5|"
                   "[X] Algorithm 6||[X] Select/deselect all||    Run Test >|");
  // The cursor line is highlighted to the box's edge.
  EXPECT_EQ(std::tuple(grid.attribute_at(30, 5), grid.attribute_at(69, 5), grid.attribute_at(30, 6)),
            std::tuple(0x1F, 0x1F, 0x30));
  const hostfw::ScreenGrid& after = machine->console().snapshot("one unticked").grid;
  EXPECT_EQ(line(after, 5), "[ ] Algorithm 1");
  EXPECT_EQ(line(after, 12), "[-] Select/deselect all");
  EXPECT_TRUE(module.runs.empty());
}

}  // namespace
