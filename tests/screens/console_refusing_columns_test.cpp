// Consoles that offer a mode but refuse cursor positions in part of it, as a
// firmware console splitter does when it joins a display with a narrower
// serial terminal: the interface takes the best mode the console can address
// in full and draws the main screen whole there.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::run_to_reset;
using testing_support::TestMachine;

struct Limit { int columns, rows, first_refused_column; };

std::function<void(hostfw::Profile&)> console(std::vector<hostfw::ConsoleModeSize> modes, std::vector<Limit> limits) {
  return [modes, limits](hostfw::Profile& profile) {
    profile.console_modes = modes;
    for (const Limit& limit : limits)
      for (hostfw::ConsoleModeSize& mode : profile.console_modes)
        if (mode.columns == limit.columns && mode.rows == limit.rows)
          mode.first_refused_column = limit.first_refused_column;
  };
}

const std::vector<hostfw::ConsoleModeSize> kSplitterModes = {{80, 25}, {80, 50}, {100, 31}};

TEST(ConsoleRefusingColumns, TheMainScreenIsDrawnWholeInTheBestModeTheConsoleAddresses) {
  TestMachine machine("wait \"Main Screen\"; snap \"main\"; key Up; key Enter",
                      console(kSplitterModes, {{100, 31, 80}}));
  // The firmware already runs the refusing mode.
  run_to_reset(machine, ApplicationSetup{.modules = {}, .console_mode_at_start = 2});

  const hostfw::ScreenSnapshot& main = machine->console().snapshot("main");
  EXPECT_EQ(main.mode, 0);  // 80x50 is not wider than 80x25
  const hostfw::ScreenGrid& grid = main.grid;
  ASSERT_EQ(std::pair(grid.columns, grid.rows), std::pair(80, 25));
  EXPECT_EQ(grid.text_at(31, 0, 17) + grid.text_at(34, 1, 11), "Tarvik DiagnosticMain Screen");
  EXPECT_EQ(grid.text_at(70, 24, 6), "09:30:");
  EXPECT_EQ(grid.attribute_at(77, 24), 0x0F);

  // Both panels' boxes closed: four corners each, bottoms on one row.
  for (const auto& [left, right] : {std::pair{3, 36}, std::pair{43, 76}}) {
    EXPECT_EQ(grid.text_at(left, 4, 1) + grid.text_at(right, 4, 1), "╔╗") << "box at column " << left;
    int bottom = 5;  // the first bottom corner below the top one
    while (bottom < grid.rows && grid.text_at(left, bottom, 1) != "╚") ++bottom;
    ASSERT_LT(bottom, grid.rows) << "box at column " << left << "\n" << grid.screen_text();
    EXPECT_EQ(grid.text_at(right, bottom, 1), "╝") << "box at column " << left;
    for (int row = 5; row < bottom; ++row)
      EXPECT_EQ(grid.text_at(left, row, 1) + grid.text_at(right, row, 1), "║║") << "row " << row;
  }
}

TEST(ConsoleRefusingColumns, TheModeChosenPassesOverModesWhoseLastCellIsRefused) {
  struct Case {
    const char* what;
    std::vector<hostfw::ConsoleModeSize> modes;
    std::vector<Limit> limits;
    int columns, rows;
  };
  const Case cases[] = {
      {"the next best by the usual rule: larger in both than 80x25", {{80, 25}, {100, 31}, {128, 40}},
       {{100, 31, 80}}, 128, 40},
      {"refusing only the very last column is refusing all the same", {{80, 25}, {100, 31}, {120, 50}},
       {{100, 31, 99}}, 120, 50},
      {"a refusal in a mode that is not chosen changes nothing", kSplitterModes, {{80, 50, 60}}, 100, 31},
      {"not even 80x25 takes its last cell: the answers say nothing, the first choice stands",
       {{80, 25}, {100, 31}}, {{80, 25, 79}, {100, 31, 80}}, 100, 31},
      {"no mode larger in both: 80x25 stays", {{80, 25}, {80, 50}}, {}, 80, 25},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestMachine machine("wait \"Main Screen\"; snap \"main\"; key Up; key Enter", console(c.modes, c.limits));
    run_to_reset(machine, ApplicationSetup{});
    const hostfw::ScreenGrid& grid = machine->console().snapshot("main").grid;
    EXPECT_EQ(std::pair(grid.columns, grid.rows), std::pair(c.columns, c.rows));
  }
}

}  // namespace
