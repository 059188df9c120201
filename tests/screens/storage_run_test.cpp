// The storage test as a technician runs it on the default machine (a healthy
// SSD, a rotating drive with unreadable sectors its error log names, and an
// old drive whose SMART status reports a failure): every drive and every
// algorithm, the advice box, the outcome of each pair, the storage part of
// the log on screen, paged through, and in the saved file.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::trimmed;
using testing_support::file_text;
using testing_support::result_line;
using testing_support::ApplicationSetup;
using testing_support::run_to_reset;
using testing_support::TestMachine;


constexpr char kStartStorageTest[] =
    "wait \"Main Screen\"; key Down; key Enter; wait \"Select Devices\"; key Enter;"
    "wait \"Select Algorithms\"; key Enter;";
// Back on the main screen the storage test is still chosen; below it are
// the NVMe test and Exit.
constexpr char kLeave[] = "wait \"Main Screen\"; key Down 2; key Enter";

// The saved log's device sections: from each "UID" line up to and including
// its "STOP TESTS" line.
std::vector<std::vector<std::string>> device_sections(const std::string& saved) {
  std::vector<std::vector<std::string>> sections;
  bool inside = false;
  std::istringstream lines(saved);
  for (std::string line; std::getline(lines, line);) {
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

constexpr int kPages = 6;  // PageDown five times: past the end of this run's log

TEST(StorageRun, EveryDriveAndAlgorithmEndsAsItsDriveImpliesWithTheAdviceBoxAndTheLog) {
  // What the outcome below rests on, said here rather than left to the
  // default machine's details.
  const auto drives_as_expected = [](hostfw::Profile& p) {
    ASSERT_EQ(p.drives.size(), 3u);
    for (hostfw::DriveInfo& d : p.drives) d.refuse_vendor_self_test = true;
    hostfw::DriveInfo& rotating = p.drives[1];
    rotating.bad_sectors = {{1000, 1000}, {204800, 204807}, {3906000000, 3906000000}};
    rotating.error_log_lbas = {1000};  // the only read error it remembers
    rotating.self_test_log_lbas = {1000};
  };
  std::string script = std::string(kStartStorageTest) +
                       "wait 7200 \"Problems have been identified\"; key Enter; wait \"F3 = view log\";"
                       "snap \"outcome\"; key Down 12; snap \"outcome scrolled\"; key F3; wait \"F2 = save log\";"
                       "snap \"page 0\";";
  for (int page = 1; page < kPages; ++page) script += "key PageDown; snap \"page " + std::to_string(page) + "\";";
  TestMachine machine(script + "key F2; wait \"Save Log\"; key Enter; wait \"Log saved successfully!\"; key Enter;"
                               "key Esc; key Esc;" + kLeave,
                      drives_as_expected);
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);
  const hostfw::ConsoleOut& console = machine->console();

  // None of the drives takes the vendor's drive self-test.
  const hostfw::ScreenGrid& outcome = console.snapshot("outcome").grid;
  const char* ssd[] = {"Arkon SSD-A510",           "Smart Status         PASSED", "Smart Short Selftest PASSED",
                       "Drive Self Test      NOT SUPPORTED", "Random Seek Test     PASSED",
                       "Funnel Seek Test     PASSED",        "Targeted Read Test   PASSED"};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(result_line(outcome, 7 + i), ssd[i]);
  EXPECT_EQ(result_line(outcome, 15).substr(0, 22), "Result Code: UHD01R000");

  // The seek tests miss the few unreadable sectors; the self-test and the
  // targeted read, which reads where the error log points, find them.
  const hostfw::ScreenGrid& scrolled = console.snapshot("outcome scrolled").grid;
  for (const auto& [row, line] :
       {std::pair{5, "SEAGATE ST2000TV101"}, {7, "Smart Short Selftest FAILED"}, {9, "Random Seek Test     PASSED"},
        {11, "Targeted Read Test   FAILED"}, {13, "Result Code: UHD01R012-PMKW9G"}, {16, "Smart Status         FAILED"},
        {23, "Result Code: UHD01R013-PMKW9G"}})
    EXPECT_EQ(result_line(scrolled, row), line) << row;

  // The log view shows the module's keys through its TranslateKey.
  const hostfw::ScreenGrid& log = console.snapshot("page 0").grid;
  EXPECT_EQ(trimmed(log.row_text(4)), " Storage - 2026/11/22 09:30:00");
  EXPECT_EQ(trimmed(log.row_text(13)), " Rotation rate: Non-rotating media detected");

  const std::string saved = file_text(machine.directory() / "volumes" / "TARVIK" / "Log" / "Log.log");
  for (const char* line : {"\nUID: Arkon-SSD-A510-AS510A2203004417\n", "\nTEMPERATURE: 46 C\n",
                           " STOP SMARTDRIVESELFTEST UNSUPPORTED\n", " MESSAGE SHORT_SELFTEST_ERROR_DETECTED\n",
                           " ERROR READ_SECTOR_ERROR 1000\n", " STOP SMARTSTATUS FAILURE ", "\n--- STORAGE\n"})
    EXPECT_NE(saved.find(line), std::string::npos) << line << "\n" << saved;

  // Paged through, the view shows every line of every drive's section, in the
  // saved file's order, though a later section is longer than the first: two
  // heading lines, then per drive an empty line, the header standing for its
  // UID and DISPLAYNAME lines and one line for each further line.
  const auto sections = device_sections(saved);
  ASSERT_EQ(sections.size(), 3u);
  ASSERT_GT(sections[1].size(), sections[0].size());
  int total = 2;
  for (const auto& section : sections) total += static_cast<int>(section.size());
  constexpr int kVisible = 25;  // Page Down moves by one line less, up to the end
  std::vector<std::string> lines(total);
  for (int page = 0; page < kPages; ++page) {
    const int top = std::min(page * (kVisible - 1), total - kVisible);
    const hostfw::ScreenGrid& grid = console.snapshot("page " + std::to_string(page)).grid;
    for (int i = 0; i < kVisible; ++i) lines[top + i] = trimmed(grid.text_at(0, 3 + i, grid.columns - 2));
  }
  const char* names[] = {"SSD-A510", "ST2000TV101-7QX102", "WX5000TVK-00A1B0"};
  int at = 2;
  for (size_t d = 0; d < sections.size(); ++d) {
    SCOPED_TRACE(names[d]);
    EXPECT_EQ(lines[at], "");
    EXPECT_EQ(lines[at + 1].rfind(" " + std::string(names[d]) + " ATA Device - Result Code: ", 0), 0u) << lines[at + 1];
    const int last = at + static_cast<int>(sections[d].size()) - 1;
    EXPECT_EQ(lines[last], " Stop Tests");
    // Each of the drive's time-stamped lines shows with its time.
    const auto stamped = std::count_if(lines.begin() + at, lines.begin() + last,
                                       [](const std::string& l) { return l.rfind(" 2026/11/22 ", 0) == 0; });
    EXPECT_EQ(stamped, std::count_if(sections[d].begin(), sections[d].end(),
                                     [](const std::string& l) { return l.rfind("20261122T", 0) == 0; }));
    at = last + 1;
  }
}

}  // namespace
