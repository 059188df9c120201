// The main screen as a technician sees it: layout at two console sizes, the
// panels' scrolling and wrap-around, the clock, and the console handed back
// on exit. Each run goes from start-up to the cold reset under a key script.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"
#include "ui/run_diagnostics_ui.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;

// Test doubles named "Test 00", "Test 01", ...
struct Modules {
  Modules(TestMachine& machine, int count) {
    for (int i = 0; i < count; ++i) {
      owned.push_back(std::make_unique<FakeTestModule>(machine->image_handle()));
      owned.back()->test_name = u"Test " + std::u16string(1, u'0' + i / 10) + std::u16string(1, u'0' + i % 10);
      setup.modules.push_back(owned.back().get());
    }
  }
  std::vector<std::unique_ptr<FakeTestModule>> owned;
  ApplicationSetup setup;
};

// The entry names of a panel's rows, first to last shown.
std::vector<std::string> panel_entries(const hostfw::ScreenGrid& grid, int left, int right) {
  std::vector<std::string> entries;
  for (int row = 5; grid.text_at(left - 1, row, 1) == "║"; ++row) {
    std::string text = grid.text_at(left, row, right - left);
    text.erase(text.find_last_not_of(' ') + 1);
    if (!text.empty()) entries.push_back(text.substr(1));
  }
  return entries;
}

int highlighted_row(const hostfw::ScreenGrid& grid, int column) {
  for (int row = 0; row < grid.rows; ++row)
    if (grid.attribute_at(column, row) == 0x1F) return row;
  return -1;
}

// The firmware left the console in 80x50: the main screen takes 100x31 with
// the cursor hidden, and Exit hands the console back cleared in its own mode
// with the cursor shown.
TEST(MainScreen, At100x31TheFrameAndBothPanelsAreWhereTechniciansExpectThemAndExitHandsTheConsoleBack) {
  TestMachine machine("wait \"Main Screen\"; snap \"main\"; key Up; key Enter");
  Modules modules(machine, 2);
  modules.setup.console_mode_at_start = 1;
  run_to_reset(machine, modules.setup);
  const hostfw::ConsoleOut& console = machine->console();
  EXPECT_FALSE(console.snapshot("main").cursor_visible);
  EXPECT_EQ(console.snapshot("main").mode, 2);
  EXPECT_EQ(std::tuple(console.mode(), console.columns(), console.rows()), std::tuple(1, 80, 50));
  EXPECT_EQ(console.screen_text(), std::string(49, '\n'));
  EXPECT_EQ(console.attribute_at(0, 0) + console.attribute(), 2 * 0x07);
  EXPECT_TRUE(console.cursor_visible());
  EXPECT_EQ(std::tuple(console.cursor_column(), console.cursor_row()), std::tuple(0, 0));

  const hostfw::ScreenGrid& grid = console.snapshot("main").grid;
  ASSERT_EQ(grid.columns, 100);
  ASSERT_EQ(grid.rows, 31);

  // Centred in columns 1 to 98, each band in its colour to both ends.
  struct Band { int row, column; const char* text; uint8_t attribute; };
  for (const Band& band :
       {Band{0, 41, "Tarvik Diagnostic", 0x0F}, Band{1, 44, "Main Screen", 0x70},
        Band{29, 11, "Use Arrow keys to change between options, and press Enter to select an option.", 0x70},
        Band{30, 42, "Version 00.1207", 0x0F}}) {
    EXPECT_EQ(grid.text_at(band.column, band.row, static_cast<int>(strlen(band.text))), band.text);
    EXPECT_EQ(grid.attribute_at(1, band.row), band.attribute);
    EXPECT_EQ(grid.attribute_at(98, band.row), band.attribute);
  }
  // The clock over the right end of the version line: hh:mm:ss.
  EXPECT_EQ(grid.text_at(90, 30, 6), "09:30:");
  EXPECT_EQ(grid.attribute_at(97, 30), 0x0F);

  // Panels: text from column 5 (Tests) and 55 (Tools), 40 wide, boxes one
  // column outside; three entries in the Tests panel.
  EXPECT_EQ(grid.text_at(22, 3, 5), "Tests");
  EXPECT_EQ(grid.text_at(72, 3, 5), "Tools");
  EXPECT_EQ(grid.text_at(4, 4, 1) + grid.text_at(45, 4, 1) + grid.text_at(4, 8, 1), "╔╗╚");
  EXPECT_EQ(grid.text_at(54, 4, 1) + grid.text_at(95, 8, 1), "╔╝");
  EXPECT_EQ(panel_entries(grid, 5, 45), (std::vector<std::string>{"Test 00", "Test 01", "Exit Application"}));
  EXPECT_EQ(panel_entries(grid, 55, 95), (std::vector<std::string>{"System Information"}));
  // The first test is highlighted across the whole panel width, nothing else is.
  EXPECT_EQ(grid.attribute_at(5, 5), 0x1F);
  EXPECT_EQ(grid.attribute_at(44, 5), 0x1F);
  EXPECT_EQ(grid.attribute_at(5, 6), 0x30);
  EXPECT_EQ(grid.attribute_at(55, 5), 0x30);
}

TEST(MainScreen, FortyTestsScrollInTheTestsPanelAndUpAndDownWrapAround) {
  TestMachine machine(
      "wait \"Main Screen\"; key Down 30; snap \"entry 30\"; key Home; key Up 31;"
      "snap \"exit\"; key Down; snap \"wrapped\"; key Down 5; key Right; snap \"tools\"; key Left; snap \"tests\";"
      "key Up 2; key Enter");
  Modules modules(machine, 40);
  modules.setup.bad_sectors_tool = true;
  run_to_reset(machine, modules.setup);
  const hostfw::ConsoleOut& console = machine->console();

  // 23 rows: entries 8 to 30, the last highlighted.
  const auto at_30 = panel_entries(console.snapshot("entry 30").grid, 5, 45);
  ASSERT_EQ(at_30.size(), 23u);
  EXPECT_EQ(at_30.front(), "Test 08");
  EXPECT_EQ(at_30.back(), "Test 30");
  EXPECT_EQ(highlighted_row(console.snapshot("entry 30").grid, 5), 27);
  EXPECT_EQ(console.snapshot("entry 30").grid.text_at(4, 28, 1), "╚");

  // Home does nothing here; Up from the first test selects "Exit Application", at the bottom.
  const auto at_exit = panel_entries(console.snapshot("exit").grid, 5, 45);
  EXPECT_EQ(at_exit.back(), "Exit Application");
  EXPECT_EQ(at_exit.front(), "Test 18");
  EXPECT_EQ(highlighted_row(console.snapshot("exit").grid, 5), 27);
  // Down from "Exit Application" wraps to the first test.
  EXPECT_EQ(panel_entries(console.snapshot("wrapped").grid, 5, 45).front(), "Test 00");
  EXPECT_EQ(highlighted_row(console.snapshot("wrapped").grid, 5), 5);

  // Right and Left keep the selection in range: from test 5 to the last tool
  // (entry 1), the Tests panel losing its highlight, and back to test 1.
  const hostfw::ScreenGrid& tools = console.snapshot("tools").grid;
  EXPECT_EQ(panel_entries(tools, 55, 95),
            (std::vector<std::string>{"System Information", "Recover Bad Sectors Tool"}));
  EXPECT_EQ(highlighted_row(tools, 55), 6);
  EXPECT_EQ(highlighted_row(tools, 5), -1);
  EXPECT_EQ(highlighted_row(console.snapshot("tests").grid, 5), 6);
  EXPECT_EQ(highlighted_row(console.snapshot("tests").grid, 55), -1);
}

TEST(MainScreen, WithoutItsServicesTheInterfaceDrawsNothingAndReturnsAborted) {
  TestMachine machine;
  EXPECT_EQ(tarvik::RunDiagnosticsUi(machine->image_handle(), machine->system_table()), EFI_ABORTED);
  EXPECT_EQ(machine.transcript(), "");
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace
