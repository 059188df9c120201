// Texts the screens take from the machine (SMBIOS strings, a drive's IDENTIFY
// model) may hold control bytes and be far longer than their box. Drawn, they
// show control characters as blanks and end at their box's edge: the title
// row stays, the boxes stay closed and nothing lands beyond a panel.
#include <gtest/gtest.h>

#include <string>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::run_to_reset;
using testing_support::TestMachine;

constexpr char kTitle[] = "Tarvik Diagnostic";

// 150+ bytes as a profile holds them: a cursor-moving C0 byte, an escape
// sequence, CR LF, DEL, a C1 byte (U+0085 in UTF-8; SMBIOS strings are read as
// Latin-1) and a Latin-1 letter that must still show.
std::string hostile(const std::string& start) {
  std::string text = start + "\x01\x08\x1b[2J\r\n\x7f\xc2\x85\xc3\xa9";
  while (text.size() < 160) text += " overlong-text";
  return text;
}
// How the start of hostile(start) shows: each control character a blank.
std::string shown(const std::string& start) { return start + "   [2J    \xc3\xa9 overlong-text overlong-text"; }

// The maker's word, then a model that fills the 40 IDENTIFY bytes.
constexpr char kModel[] = "Zeta Q\x01\x7f\x9b\x1b" "9000-ABCDEFGHIJKLMNOPQRSTUVWXYZ012";
constexpr char kModelShown[] = "Q    9000-ABCDEFGHIJKLMNOPQRSTUVWXYZ012";

// The first Columns characters of a UTF-8 text.
std::string first_columns(const std::string& utf8, int columns) {
  size_t end = 0;
  for (int n = 0; n <= columns && end < utf8.size(); ++end)
    if ((static_cast<unsigned char>(utf8[end]) & 0xC0) != 0x80 && ++n > columns) break;
  return utf8.substr(0, end);
}

void hostile_machine(hostfw::Profile& p) {
  p.system.manufacturer = hostile("Maker");
  p.system.product = hostile("Product");
  p.bios.vendor = hostile("Vendor");
  p.bios.version = hostile("Version");
  p.processors.at(0).manufacturer = hostile("Cpu");
  p.processors.at(0).version = hostile("Model");
  p.memory_modules.at(0).manufacturer = hostile("Mnemos");
  p.memory_modules.at(0).part_number = hostile("Part");
  // A plain drive and the hostile one, tested last so that the run screen
  // ends on it; with two drives the device list shows.
  p.drives.resize(1);
  p.drives.push_back(p.drives[0]);
  p.drives[1].port = 1;
  p.drives[1].model = kModel;
  // Long before its control bytes, which would move the cursor off the row.
  p.volumes.at(0).label = "Stick-" + std::string(70, 'L') + "\r\n\x01";
}

// A frame drawn whole: the title row, no control byte drawn as such (the host
// console shows those as '?'), and every row blank beyond Edge but for the
// scroll-bar column.
void expect_whole_frame(const hostfw::ScreenGrid& grid, int edge, const char* screen) {
  SCOPED_TRACE(screen);
  EXPECT_NE(grid.row_text(0).find(kTitle), std::string::npos);
  EXPECT_EQ(grid.screen_text().find('?'), std::string::npos) << grid.screen_text();
  for (int row = 2; row < grid.rows - 2; ++row) {
    const std::string beyond = grid.text_at(edge + 1, row, grid.columns - 3 - edge);
    EXPECT_EQ(beyond.find_first_not_of(' '), std::string::npos) << "row " << row << ": " << beyond;
  }
}

// A box's right edge from Top to Bottom: its corners and the line between.
void expect_right_edge(const hostfw::ScreenGrid& grid, int column, int top, int bottom) {
  EXPECT_EQ(grid.text_at(column, top, 1), "\u2557") << top;
  for (int row = top + 1; row < bottom; ++row) EXPECT_EQ(grid.text_at(column, row, 1), "\u2551") << row;
  EXPECT_EQ(grid.text_at(column, bottom, 1), "\u255d") << bottom;
}

// Every tab of System Information, then a run of both drives with the SMART
// status alone (over in moments), its log and the save dialog.
TEST(OutsideTexts, SystemInformationTheDriveListsTheRunScreenAndItsLogCutAndBlankTheMachinesStrings) {
  TestMachine machine(
      "wait \"Main Screen\"; key Right; key Enter; wait \"Machine Information\"; snap \"machine\"; key Tab;"
      "snap \"memory\"; key Tab; snap \"storage\"; key PgDn; snap \"storage lower\"; key Tab; snap \"nvme\"; key Esc;"
      "wait \"Main Screen\";"
      "key Left; key Down; key Enter; wait \"Select Devices\"; snap \"devices\"; key Enter;"
      "wait \"Select Algorithms\"; key Down 6; key Space; key Up 6; key Space; key Enter;"
      "wait \"F3 = view log\"; snap \"run\"; key F3; wait \"F2 = save log\"; snap \"log\"; key F2;"
      "wait \"Save Log\"; snap \"save\"; key Esc; key Esc; key Esc; wait \"Main Screen\"; key Down 2; key Enter",
      hostile_machine);
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  const hostfw::ConsoleOut& console = machine->console();

  // At 100 columns the values run from column 50 to the boxes' edge at 85.
  const hostfw::ScreenGrid& tab = console.snapshot("machine").grid;
  expect_whole_frame(tab, 85, "machine");
  const std::pair<int, const char*> strings[] = {
      {7, "Maker"}, {8, "Product"}, {15, "Version"}, {17, "Vendor"}, {22, "Cpu"}};
  for (const auto& [row, start] : strings)
    EXPECT_EQ(tab.text_at(50, row, 35), first_columns(shown(start), 35)) << start;
  // The processor version takes its two rows: broken at the last blank that
  // fits (a control character is no blank), the rest cut at the box.
  EXPECT_EQ(tab.text_at(50, 23, 35), first_columns(shown("Model"), 30) + "     ");
  EXPECT_EQ(tab.text_at(50, 24, 35), "overlong-text overlong-text overlon");
  for (const auto& [top, bottom] : {std::pair{6, 11}, {14, 18}, {21, 25}}) expect_right_edge(tab, 85, top, bottom);

  // Module tabs wrap long values onto continuation lines inside their box.
  for (const char* name : {"memory", "storage", "storage lower", "nvme"}) {
    const hostfw::ScreenGrid& grid = console.snapshot(name).grid;
    expect_whole_frame(grid, 85, name);
    expect_right_edge(grid, 85, 5, grid.rows - 4);
  }
  const hostfw::ScreenGrid& memory = console.snapshot("memory").grid;
  EXPECT_TRUE(memory.contains(first_columns(shown("Mnemos"), 30))) << memory.screen_text();
  EXPECT_TRUE(memory.contains(first_columns(shown("Part"), 30))) << memory.screen_text();
  // The NVMe drives' tab, with their serial numbers and health figures.
  const hostfw::ScreenGrid& nvme = console.snapshot("nvme").grid;
  EXPECT_TRUE(nvme.contains("ANV7B2231000871") && nvme.contains("Percentage Used:")) << nvme.screen_text();
  // The second drive's model, a word wider than the value column.
  const hostfw::ScreenGrid& storage = console.snapshot("storage lower").grid;
  EXPECT_TRUE(storage.contains(first_columns(kModelShown, 35) + "\u2551")) << storage.screen_text();

  const hostfw::ScreenGrid& run = console.snapshot("run").grid;
  expect_whole_frame(run, 97, "run");
  // Left panel: the whole "Device:" row, cut at the box's edge at column 48.
  EXPECT_EQ(run.text_at(5, 5, 43), first_columns(std::string("Device: Zeta ") + kModelShown, 43));
  expect_right_edge(run, 48, 4, run.rows - 4);
  // Right panel: the device's name (the module shortens it) heads its results.
  EXPECT_TRUE(run.contains("   Zeta Q    9000-ABCD   ")) << run.screen_text();
  expect_right_edge(run, 97, 4, run.rows - 4);

  const hostfw::ScreenGrid& devices = console.snapshot("devices").grid;
  expect_whole_frame(devices, 70, "devices");
  EXPECT_TRUE(devices.contains("[X] Zeta Q    9000-ABCD   ")) << devices.screen_text();

  const hostfw::ScreenGrid& log = console.snapshot("log").grid;
  expect_whole_frame(log, 98, "log");
  EXPECT_TRUE(log.contains(" Q    9000-ABCDEFGHIJKLMNOPQRS ATA Device")) << log.screen_text();

  // The volume's label, on the dialog's first row, ends inside its border at
  // column 75.
  const hostfw::ScreenGrid& save = console.snapshot("save").grid;
  EXPECT_EQ(save.text_at(27, 13, 46), "Device Stick-" + std::string(33, 'L')) << save.screen_text();
  EXPECT_EQ(save.text_at(73, 13, 27).find_first_not_of(' '), std::string::npos) << save.row_text(13);
  EXPECT_EQ(save.attribute_at(75, 13), 0x7F);
}

}  // namespace
