// The rows a module gives the run screen's left panel about the device under
// test: a row given whole as its label (as the storage module's "Device:"
// row), a label with its value in the value column, and texts too long for
// the panel, which end at its edge.
#include <gtest/gtest.h>

#include <string>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::trimmed;
using testing_support::ApplicationSetup;
using testing_support::FakeAlgorithm;
using testing_support::FakeDevice;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;

// At 100 columns the panel's text runs from column 5 to the box's right edge
// at column 48; values start at column 25.
constexpr int kFrom = 5, kEdge = 48;
std::string panel_row(const hostfw::ScreenGrid& grid, int row) { return grid.text_at(kFrom, row, kEdge - kFrom); }

TEST(RunInfoRows, AWholeRowShowsUpToThePanelsEdgeAndValuesStartInTheirColumn) {
  TestMachine machine(
      "wait \"Main Screen\"; key Enter; wait \"Select Devices\"; key Enter;"  // one algorithm: no list
      "wait \"Disk One Model\"; snap \"first\"; wait \"Device: B\"; snap \"second\"; wait \"F3 = view log\"; key Esc;"
      "wait \"Main Screen\"; key Up; key Enter");
  FakeTestModule module(machine->image_handle());
  const std::u16string too_long = u"Device: Makers Of Very Long Names Incorporated Model 9000";
  module.devices = {FakeDevice(u"Disk A", {},
                               {{u"Device: Arkon Disk One Model", u""},
                                {u"Size:", u"64 GB"},
                                {too_long, u""},
                                {u"Serial:", u"S-0123456789-0123456789-0123456789"}}),
                    FakeDevice(u"Disk B", {}, {{u"Device: B", u""}, {u"Size:", u""}, {u"", u""}, {u"", u"x"}})};
  module.algorithms = {FakeAlgorithm(u"Read", u"READ")};
  module.algorithms[0].busy_ms = 3000;
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});

  const hostfw::ScreenGrid& first = machine->console().snapshot("first").grid;
  EXPECT_EQ(trimmed(panel_row(first, 5)), "Device: Arkon Disk One Model");
  EXPECT_EQ(trimmed(panel_row(first, 6)), "Size:" + std::string(15, ' ') + "64 GB");
  EXPECT_EQ(panel_row(first, 7), "Device: Makers Of Very Long Names Incorpora");
  EXPECT_EQ(panel_row(first, 8), "Serial:" + std::string(13, ' ') + "S-0123456789-0123456789");
  for (int row = 5; row <= 8; ++row) {
    EXPECT_EQ(first.text_at(kEdge, row, 1), "\u2551") << "the box's edge stays on row " << row;
    EXPECT_EQ(first.attribute_at(kEdge - 1, row), 0x30) << row;
  }

  // The next device's shorter texts leave nothing of the first device's.
  const hostfw::ScreenGrid& second = machine->console().snapshot("second").grid;
  EXPECT_EQ(panel_row(second, 5), "Device: B" + std::string(kEdge - kFrom - 9, ' '));
  EXPECT_EQ(panel_row(second, 6), "Size:" + std::string(kEdge - kFrom - 5, ' '));
  EXPECT_EQ(panel_row(second, 7), std::string(kEdge - kFrom, ' '));
  EXPECT_EQ(panel_row(second, 8), std::string(20, ' ') + "x" + std::string(kEdge - kFrom - 21, ' '));
  EXPECT_EQ(second.text_at(kEdge, 7, 1), "\u2551");
}

}  // namespace
