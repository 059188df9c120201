// The storage log on screen after a run of every drive, where the drives'
// sections differ in length (the rotating drive reports the sectors it could
// not read, the others less): paging through it reaches every line of every
// section, in the saved file's order.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::trimmed;
using testing_support::ApplicationSetup;
using testing_support::run_to_reset;
using testing_support::TestMachine;

std::vector<std::string> file_lines(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The saved log's device sections: from each "UID" line up to and including
// its "STOP TESTS" line.
std::vector<std::vector<std::string>> device_sections(const std::vector<std::string>& lines) {
  std::vector<std::vector<std::string>> sections;
  bool inside = false;
  for (const std::string& line : lines) {
    if (line.rfind("UID", 0) == 0) {
      sections.emplace_back();
      inside = true;
    }
    if (!inside) continue;
    sections.back().push_back(line);
    if (line.rfind("STOP TESTS", 0) == 0) inside = false;
  }
  return sections;
}

// The view's rows from the top of its area (row 3) down, without the scroll
// bar's column.
std::vector<std::string> view_rows(const hostfw::ScreenGrid& grid, int count) {
  std::vector<std::string> rows;
  for (int row = 3; row < 3 + count; ++row)
    rows.push_back(trimmed(grid.text_at(0, row, grid.columns - 2)));
  return rows;
}

constexpr int kPages = 6;  // PageDown five times: past the end of this run's log

// Runs every drive with every algorithm, opens the log and pages through it.
std::string run_every_drive_and_page_through_the_log() {
  std::string script =
      "wait \"Main Screen\"; key Down; key Enter; wait \"Select Devices\"; key Enter;"
      "wait \"Select Algorithms\"; key Enter; wait 7200 \"Problems have been identified\"; key Enter;"
      "wait \"F3 = view log\"; key F3; wait \"F2 = save log\"; snap \"page 0\";";
  for (int page = 1; page < kPages; ++page) script += "key PageDown; snap \"page " + std::to_string(page) + "\";";
  return script + "key F2; wait \"Save Log\"; key Enter; wait \"Log saved successfully!\"; key Enter; key Esc;"
                  "key Esc; wait \"Main Screen\"; key Down 2; key Enter";
}

TEST(StorageLogView, EveryDriveShowsEachOfItsLinesHoweverLongItsSectionIs) {
  TestMachine machine(run_every_drive_and_page_through_the_log());
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);

  const std::vector<std::vector<std::string>> sections =
      device_sections(file_lines(machine.directory() / "volumes" / "TARVIK" / "Log" / "Log.log"));
  ASSERT_EQ(sections.size(), 3u);
  ASSERT_GT(sections[1].size(), sections[0].size()) << "the case to show: a later section longer than the first";

  // Two heading lines, then per drive an empty line, the header that stands
  // for its UID and DISPLAYNAME lines, and one line for each further line.
  int total = 2;
  for (const auto& section : sections) total += static_cast<int>(section.size());
  // Page Down moves by one line less than the 25 shown, up to the end.
  constexpr int kVisible = 25;
  std::vector<std::string> lines(total);
  for (int page = 0; page < kPages; ++page) {
    const int top = std::min(page * (kVisible - 1), total - kVisible);
    const auto shown = view_rows(machine->console().snapshot("page " + std::to_string(page)).grid, kVisible);
    for (int i = 0; i < kVisible; ++i) lines[top + i] = shown[i];
  }
  EXPECT_EQ(lines[0], " Tarvik Diagnostic Log");
  const std::vector<std::string> names = {"SSD-A510 ATA Device", "ST2000TV101-7QX102 ATA Device",
                                          "WX5000TVK-00A1B0 ATA Device"};
  int at = 2;
  for (size_t d = 0; d < sections.size(); ++d) {
    SCOPED_TRACE("drive " + std::to_string(d));
    EXPECT_EQ(lines[at], "");
    EXPECT_EQ(lines[at + 1].rfind(" " + names[d] + " - Result Code: ", 0), 0u) << lines[at + 1];
    const int last = at + static_cast<int>(sections[d].size()) - 1;
    EXPECT_EQ(lines[last], " Stop Tests");
    // Each of the drive's time-stamped lines shows with its time.
    int stamped = 0;
    for (int l = at + 2; l <= last; ++l) stamped += lines[l].rfind(" 2026/11/22 ", 0) == 0 ? 1 : 0;
    int stamped_in_file = 0;
    for (const std::string& line : sections[d]) stamped_in_file += line.rfind("20261122T", 0) == 0 ? 1 : 0;
    EXPECT_EQ(stamped, stamped_in_file);
    at = last + 1;
  }
}

}  // namespace
