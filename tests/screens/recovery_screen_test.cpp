// The recovery tool as a technician sees it: choosing the drive and the
// operation, the run screen with the tool's lines and boxes, the final view
// and the recovery log. A scripted test double stands in for the tool where
// the screens' own behaviour is under test; the real tool runs on the default
// machine's rotating drives for the whole slice.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "core/globals.h"
#include "hostfw/ata_controller.h"
#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"
#include "tests/support/fake_bad_sectors_tool.h"

namespace {

using testing_support::trimmed;
using testing_support::file_text;
using testing_support::result_line;
using testing_support::left_line;
using testing_support::ApplicationSetup;
using testing_support::FakeBadSectorsTool;
using testing_support::run_to_reset;
using testing_support::TestMachine;
using testing_support::tool_line;

constexpr char kOpenTool[] = "wait \"Main Screen\"; key Right; key Down; key Enter;";
constexpr char kLeave[] = "wait \"Main Screen\"; key Left; key Up; key Enter";
constexpr UINT8 kWarning = 1, kQuestion = 4;


ApplicationSetup with_tool(FakeBadSectorsTool& tool) {
  return ApplicationSetup{.modules = {}, .bad_sectors_tool = true, .tool_record = tool.record()};
}

// With one drive the operations come first; ESC there runs nothing. A
// warning refused with ESC ends the flow without the final view.
TEST(RecoveryScreen, OneDriveSkipsTheDeviceListAndARefusedWarningEndsTheFlowWithoutTheFinalView) {
  TestMachine machine(std::string(kOpenTool) + "wait \"Select Algorithms\"; snap \"operations\"; key Esc;"
                      "wait \"Main Screen\"; key Enter; wait \"Select Algorithms\"; key Enter;"
                      "wait \"The drive is failing.\"; snap \"warning\"; key Esc;" + kLeave);
  FakeBadSectorsTool tool;
  EFI_STATUS answer = EFI_SUCCESS;
  tool.run = [&](tarvik::TEST_PROGRESS_CALLBACK, tarvik::TEST_MESSAGE_CALLBACK message) -> UINT64 {
    answer = message(nullptr, u"The drive is failing.", kWarning, 0);
    return 1003;
  };
  run_to_reset(machine, with_tool(tool));  // also: no pool left behind

  const hostfw::ScreenGrid& operations = machine->console().snapshot("operations").grid;
  EXPECT_EQ(machine.transcript().find("Select Devices"), std::string::npos);
  EXPECT_NE(operations.row_text(1).find("Bad Sectors Tool"), std::string::npos);
  std::string list;
  for (int row = 5; row <= 8; ++row) list += trimmed(operations.text_at(30, row, 40)) + "|";
  EXPECT_EQ(list, "[X] Check bad sectors|[ ] Check and recover bad sectors||    Run Test >|");
  EXPECT_NE(operations.row_text(29).find("Space = select  ENTER = run test"), std::string::npos);
  EXPECT_EQ(tool.runs.size(), 1u);
  EXPECT_EQ(answer, EFI_ABORTED);
  EXPECT_TRUE(machine->console().snapshot("warning").grid.contains("Press ENTER to continue."));
  EXPECT_EQ(machine.transcript().find("Recover finished at:"), std::string::npos);
  EXPECT_EQ(machine.transcript().find("F3 = view log"), std::string::npos);
}

// A scan reports after every chunk; the left panel is drawn about ten times
// a second and only where it changed, and the final 100 always shows. Then
// 22 lines are visible on 31 rows, the start line and a blank first; past
// that the footer offers scrolling and the view follows the newest line,
// until the technician scrolls up: then a new line leaves the view alone.
TEST(RecoveryScreen, ProgressIsDrawnAFewTimesAndTheViewFollowsTheNewestLineUntilTheTechnicianScrollsUp) {
  TestMachine machine(std::string(kOpenTool) + "wait \"Select Algorithms\"; key Enter; wait \"line Y\"; key Up 3;"
                      "wait \"F3 = view log\"; snap \"final\"; key Esc;" + kLeave);
  FakeBadSectorsTool tool;
  tool.rows = {{u"Device 0:", u"Drive 0"}, {u"Testing sectors", u"0"}};
  std::u16string range;
  hostfw::ConsoleOut& console = machine->console();
  tool.run = [&](tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) -> UINT64 {
    for (int chunk = 0; chunk <= 10000; ++chunk) {
      range.clear();
      for (char c : std::to_string(chunk * 16)) range.push_back(static_cast<char16_t>(c));
      tool.rows[1].second = range;
      tarvik::gBS->Stall(200);  // 2 s of drive time in all
      progress(nullptr, chunk / 100, 0);
    }
    for (int i = 1; i <= 25; ++i) {
      tool_line(message, u"line " + std::u16string(1, u'A' + (i - 1)));
      if (i == 20 || i == 21 || i == 25) console.save_snapshot("line " + std::to_string(i));
    }
    tarvik::gBS->Stall(3000000);  // the key poll reads the three Ups
    tool_line(message, u"line Z");
    console.save_snapshot("new line");
    return 1000;
  };
  run_to_reset(machine, with_tool(tool));

  const std::string& drawn = machine.transcript();
  const size_t run_start = drawn.find("Information about Recover");
  ASSERT_NE(run_start, std::string::npos);
  const long bars = std::count(drawn.begin() + run_start, drawn.end(), '%');
  EXPECT_GE(bars, 10);
  EXPECT_LE(bars, 30);
  // The device row never changed: drawn with the screen only.
  size_t device_rows = 0;
  for (size_t at = drawn.find("Drive 0", run_start); at != std::string::npos; at = drawn.find("Drive 0", at + 1))
    ++device_rows;
  EXPECT_EQ(device_rows, 1u);
  const hostfw::ScreenGrid& final = console.snapshot("final").grid;
  EXPECT_NE(final.row_text(10).find("100%"), std::string::npos);
  EXPECT_EQ(left_line(final, 6), "Testing sectors     160000");
  // A row redrawn alone keeps the panel's colours, inside the box's edges.
  for (int row = 5; row <= 7; ++row)
    for (int column = 1; column <= 48; ++column)
      EXPECT_EQ(final.attribute_at(column, row), 0x30) << "row " << row << " column " << column;

  const hostfw::ScreenGrid& twenty = console.snapshot("line 20").grid;
  EXPECT_EQ(trimmed(twenty.row_text(29)).substr(trimmed(twenty.row_text(29)).size() - 15), "ESC = stop test");
  EXPECT_EQ(result_line(twenty, 5), "Recover started at: 2026-11-22 09:30:00.");
  EXPECT_EQ(result_line(twenty, 26), "line T");
  const hostfw::ScreenGrid& twenty_one = console.snapshot("line 21").grid;
  EXPECT_NE(twenty_one.row_text(29).find("ESC = stop test  Up arrow = scroll up  Down arrow = scroll down"),
            std::string::npos);
  EXPECT_EQ(result_line(twenty_one, 5), "");
  EXPECT_EQ(result_line(twenty_one, 26), "line U");
  EXPECT_EQ(result_line(console.snapshot("line 25").grid, 5), "line D");
  const hostfw::ScreenGrid& new_line = console.snapshot("new line").grid;
  EXPECT_EQ(result_line(new_line, 5), "line A");
  EXPECT_EQ(result_line(new_line, 26), "line V");
}

// The chosen drive and operation run; No to the tool's question still
// reaches the final view with the times, and ESC asks the tool to cancel. The
// spinner (column 46, the progress bar's row) turns every 2 s while the tool
// works and holds still while one of its boxes waits for an answer.
TEST(RecoveryScreen, TheChosenOperationRunsAndNoToItsQuestionStillReachesTheFinalViewAndEscCancels) {
  TestMachine machine(std::string(kOpenTool) + "wait \"Select Devices\"; key Down; key Space; key Enter;"
                      "wait \"Select Algorithms\"; key Down; key Space; key Enter; wait \"Recover them?\";"
                      "snap \"question\"; pause 5000; snap \"question later\"; type \"n\"; wait \"line after\";"
                      "key Esc; wait \"F3 = view log\"; snap \"final\"; key Esc;" + kLeave);
  FakeBadSectorsTool tool;
  tool.devices = {u"Drive 0", u"Drive 1"};
  hostfw::ConsoleOut& console = machine->console();
  EFI_STATUS answer = EFI_SUCCESS;
  tool.run = [&](tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) -> UINT64 {
    console.save_snapshot("start");
    tool_line(message, u"Error #001 in sector 1000");
    tarvik::gBS->Stall(4500000);
    answer = message(nullptr, u"Recover them?", kQuestion, 0);
    tool_line(message, u"line after");
    progress(nullptr, 100, 0);
    // Runs until the screen passes on the technician's ESC.
    for (int i = 0; i < 200 && tool.cancels == 0; ++i) tarvik::gBS->Stall(50000);
    return tool.cancels > 0 ? 1003 : 1000;
  };
  run_to_reset(machine, with_tool(tool));
  EXPECT_EQ(tool.runs, (std::vector<std::pair<UINT64, UINT64>>{{1, 1}}));
  EXPECT_EQ(answer, EFI_ABORTED);
  EXPECT_EQ(tool.cancels, 1);
  EXPECT_TRUE(console.snapshot("question").grid.contains("Press Y for Yes and N for No."));
  const auto spinner = [&](const char* name) { return console.snapshot(name).grid.text_at(46, 10, 1); };
  EXPECT_NE(spinner("question"), spinner("start"));
  EXPECT_EQ(spinner("question later"), spinner("question"));

  const hostfw::ScreenGrid& final = console.snapshot("final").grid;
  EXPECT_FALSE(final.contains("Recover them?"));  // the screen was redrawn over the box
  EXPECT_EQ(left_line(final, 5), "Device 0:           Drive 0");
  EXPECT_EQ(left_line(final, 7), "Operation: Check and recover bad sectors");
  EXPECT_NE(final.row_text(10).find("100%"), std::string::npos);
  const std::vector<std::string> results = {"Recover started at: 2026-11-22 09:30:00.", "", "Error #001 in sector 1000",
                                            "line after", "", "Recover finished at: 2026-11-22 09:30:10.",
                                            "Duration of Recover: 00:00:10."};
  for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(result_line(final, 5 + static_cast<int>(i)), results[i]);
  EXPECT_EQ(trimmed(final.row_text(29)).substr(trimmed(final.row_text(29)).size() - 25), "ESC = exit  F3 = view log");
}

// The whole slice on the default machine: its 1863 GB rotating drive has
// unreadable sectors at 1000, 204800-204807 and 3906000000.
TEST(RecoveryRealTool, RecoverRemapsTheBadSectorsAndASecondCheckFindsNone) {
  TestMachine machine(std::string(kOpenTool) + "wait \"Select Devices\"; key Enter; wait \"Select Algorithms\";"
                      "key Down; key Space; key Enter; wait \"This tool will identify\"; type \"y\";"
                      "wait \"Are you sure you want\"; type \"y\"; wait 600 \"Bad sectors were found!\"; type \"y\";"
                      "wait 600 \"F3 = view log\"; snap \"recovered\"; key F3; wait \"F2 = save log\"; key F2;"
                      "wait \"Save Log\"; key Enter; wait \"Log saved successfully!\"; key Enter; key Esc;"
                      "wait \"Main Screen\"; key Enter; wait \"Select Devices\"; key Enter; wait \"Select Algorithms\";"
                      "key Enter; wait \"about one hour\"; type \"y\"; wait 600 \"F3 = view log\"; snap \"second\";"
                      "key Esc;" + kLeave);
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_bad_sectors_tool = true});
  // 10 found, two lines per repair and two summaries: the view followed the
  // newest line and the final view moved on to the duration.
  const hostfw::ScreenGrid& recovered = machine->console().snapshot("recovered").grid;
  EXPECT_EQ(result_line(recovered, 5), "Corrected sector 204807");
  EXPECT_EQ(result_line(recovered, 21), "Corrected sector 1000");
  EXPECT_EQ(result_line(recovered, 22), "# Bad sectors found =  10 #");
  EXPECT_EQ(result_line(recovered, 23), "# Bad sectors recovered: 10 #");
  EXPECT_EQ(result_line(recovered, 26), "Duration of Recover: 00:00:10.");
  for (uint64_t lba : {1000ull, 204800ull, 204807ull, 3906000000ull})
    EXPECT_FALSE(machine->ata()->sector_is_bad(1, lba)) << lba;
  const hostfw::ScreenGrid& second = machine->console().snapshot("second").grid;
  EXPECT_EQ(result_line(second, 7), "# No bad sector found #");
  EXPECT_EQ(result_line(second, 9), "Recover finished at: 2026-11-22 09:30:10.");

  const std::string saved = file_text(machine.directory() / "volumes" / "TARVIK" / "Log" / "Log.log");
  const std::string head = "+++ 20261122T093000UTC RECOVER\nOperation: Check and recover bad sectors\n"
                           "Device 0: SEAGATE ST2000TV101-7QX102 \nSize: 1863 GB\nError #001 in sector 1000\n";
  const std::string tail = "\nCorrected sector 1000\n# Bad sectors found =\t 10 #\n# Bad sectors recovered: 10 #\n"
                           "--- 20261122T093010UTC RECOVER\n";
  EXPECT_EQ(saved.substr(0, head.size()), head) << saved;
  EXPECT_TRUE(saved.ends_with(tail)) << saved;
  EXPECT_NE(saved.find("\nError #010 in sector 3906000000\n"), std::string::npos) << saved;
}

}  // namespace
