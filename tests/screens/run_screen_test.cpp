// A test run as a technician sees it: the device and algorithm lists, the
// queue and progress while pairs run, ESC, an error from the module, the
// outcome with result codes and the log screen. Test doubles stand in for the
// modules, except where the memory test itself runs on a small simulated
// machine.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::trimmed;
using testing_support::result_line;
using testing_support::ApplicationSetup;
using testing_support::FakeAlgorithm;
using testing_support::FakeDevice;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;

constexpr char kLeave[] = "wait \"Main Screen\"; key Up; key Enter";


// The devices come first; Down from the first entry three times reaches the
// confirm line past the all-line. Back on the main screen the test is still
// selected. Each device's rows head the left panel while it is tested.
TEST(RunScreen, TwoDevicesAndThreeAlgorithmsQueueRunAndEndWithAResultCodeEach) {
  TestMachine machine("wait \"Main Screen\"; key Enter; wait \"Select Devices\"; snap \"devices\"; key Down 3;"
                      "snap \"next\"; key Enter; wait \"Select Algorithms\"; key Enter; wait \"IN PROGRESS\";"
                      "snap \"running\"; wait \"S-0123456789-0123456789\"; snap \"first\"; wait \"Device: B\";"
                      "snap \"second\"; wait \"F3 = view log\"; snap \"outcome\"; key Esc; wait \"Main Screen\";"
                      "snap \"back\";" + std::string(kLeave));
  FakeTestModule module(machine->image_handle());
  module.test_name = u"Quick Disk Test";
  module.devices = {FakeDevice(u"Disk A"), FakeDevice(u"Disk B")};
  module.algorithms = {FakeAlgorithm(u"Read", u"READ"), FakeAlgorithm(u"Seek", u"SEEK", tarvik::TEST_RESULT_FAILED),
                       FakeAlgorithm(u"Smart", u"SMART", tarvik::TEST_RESULT_NOT_SUPPORTED)};
  module.algorithms[0].busy_ms = 50;
  module.algorithms[0].progress = {0, 10, 7, 20};  // a report that goes back is not drawn
  module.devices[0].run_info = {{u"Device: Arkon Disk One Model", u""}, {u"Size:", u"64 GB"},
                                {u"Device: Makers Of Very Long Names Incorporated Model 9000", u""},
                                {u"Serial:", u"S-0123456789-0123456789-0123456789"}};
  module.devices[1].run_info = {{u"Device: B", u""}, {u"Size:", u""}, {u"", u""}, {u"", u"x"}};
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});
  const hostfw::ScreenGrid& devices = machine->console().snapshot("devices").grid;
  for (const auto& [row, line] : {std::pair{5, "[X] Disk A"}, {6, "[X] Disk B"}, {10, "    Next >"}})
    EXPECT_EQ(trimmed(devices.text_at(30, row, 40)), line);
  EXPECT_NE(devices.row_text(29).find("ENTER = next"), std::string::npos);
  EXPECT_EQ(machine->console().snapshot("next").grid.attribute_at(30, 10), 0x1F);
  EXPECT_EQ(machine->console().snapshot("back").grid.attribute_at(5, 5), 0x1F);
  EXPECT_NE(machine.transcript().find(" 10%"), std::string::npos);
  EXPECT_EQ(machine.transcript().find(" 07%"), std::string::npos);

  // (3 + 4) x 2 + 4 = 18 lines fit in 22: no scrolling, short footers.
  const hostfw::ScreenGrid& running = machine->console().snapshot("running").grid;
  EXPECT_EQ(trimmed(running.row_text(29)), std::string(42, ' ') + "ESC = stop test");
  EXPECT_EQ(result_line(running, 5), "Test started at: 2026-11-22 09:30:00.");
  EXPECT_EQ(result_line(running, 7), "Disk A");
  EXPECT_EQ(result_line(running, 8), "Read  IN PROGRESS");  // states from column 55 + 5 + 1
  EXPECT_EQ(running.attribute_at(61, 8), 0x31);
  EXPECT_EQ(result_line(running, 9), "Seek  ON QUEUE");
  EXPECT_EQ(result_line(running, 12), "Result Code: -");
  EXPECT_EQ(result_line(running, 14), "Disk B");

  // The left panel's rows about the device: a row given whole, a label with
  // its value from column 25, texts that end at the box's edge at column 48;
  // the next device's shorter texts leave nothing of the first's.
  const auto panel_row = [](const hostfw::ScreenGrid& grid, int row) { return grid.text_at(5, row, 43); };
  const hostfw::ScreenGrid& first = machine->console().snapshot("first").grid;
  EXPECT_EQ(trimmed(panel_row(first, 5)), "Device: Arkon Disk One Model");
  EXPECT_EQ(trimmed(panel_row(first, 6)), "Size:" + std::string(15, ' ') + "64 GB");
  EXPECT_EQ(panel_row(first, 7), "Device: Makers Of Very Long Names Incorpora");
  EXPECT_EQ(panel_row(first, 8), "Serial:" + std::string(13, ' ') + "S-0123456789-0123456789");
  EXPECT_EQ(trimmed(panel_row(first, 9)), "Algorithm:          Read");
  for (int row = 5; row <= 8; ++row) {
    EXPECT_EQ(first.text_at(48, row, 1), "\u2551") << "the box's edge stays on row " << row;
    EXPECT_EQ(first.attribute_at(47, row), 0x30) << row;
  }
  const hostfw::ScreenGrid& second = machine->console().snapshot("second").grid;
  EXPECT_EQ(panel_row(second, 5), "Device: B" + std::string(34, ' '));
  EXPECT_EQ(panel_row(second, 6), "Size:" + std::string(38, ' '));
  EXPECT_EQ(panel_row(second, 7), std::string(43, ' '));
  EXPECT_EQ(panel_row(second, 8), std::string(20, ' ') + "x" + std::string(22, ' '));

  const hostfw::ScreenGrid& outcome = machine->console().snapshot("outcome").grid;
  EXPECT_NE(outcome.row_text(29).find("ESC = exit  F3 = view log"), std::string::npos);
  EXPECT_EQ(result_line(outcome, 8), "Read  PASSED");
  EXPECT_EQ(outcome.attribute_at(61, 8), 0x02);
  EXPECT_EQ(result_line(outcome, 9), "Seek  FAILED");
  EXPECT_EQ(outcome.attribute_at(61, 9), 0x34);
  EXPECT_EQ(result_line(outcome, 10), "Smart NOT SUPPORTED");
  for (int row : {12, 19}) EXPECT_EQ(result_line(outcome, row).substr(0, 17), "Result Code: UFK0") << row;
  EXPECT_EQ(result_line(outcome, 21), "Test finished at: 2026-11-22 09:30:00.");
  EXPECT_EQ(result_line(outcome, 22), "Total time of test: 00:00:00.");
  EXPECT_EQ(module.runs.size(), 6u);
}

// The module's runs in turn: one that asks the technician a question in the
// middle and passes on Yes, one that ends in the module's own error 11, and
// then the firmware's 1004.
struct AsksThenFails {
  static inline int runs = 0;
  static EFIAPI UINT64 Run(tarvik::TestModuleProtocol* self, UINT64, UINT8, tarvik::TEST_PROGRESS_CALLBACK,
                           tarvik::TEST_MESSAGE_CALLBACK message) {
    if (runs++ > 0) return runs == 2 ? 11 : tarvik::TEST_RESULT_PLATFORM_ERROR;
    const EFI_STATUS answer = message(self, u"Is the drive cool enough to go on?",
                                      static_cast<UINT8>(tarvik::TestMessageKind::Question), 0);
    return answer == EFI_SUCCESS ? tarvik::TEST_RESULT_PASSED : tarvik::TEST_RESULT_FAILED;
  }
};

// The question gets the technician's answer, not the key poll's; an error
// from the module shows its text and returns to the main screen.
TEST(RunScreen, AModulesQuestionGetsTheTechniciansAnswerAndItsErrorsReturnToTheMainScreen) {
  TestMachine machine("wait \"Main Screen\"; key Enter; wait \"Press Y for Yes and N for No.\"; pause 50; key y;"
                      "wait \"F3 = view log\"; snap \"outcome\"; key Esc; wait \"Main Screen\"; key Enter;"
                      "wait \"Fake failure 1\"; snap \"error\"; key Enter; wait \"Main Screen\"; key Enter;"
                      "wait \"Error in UEFI execution of test.\"; key Enter;" + std::string(kLeave));
  FakeTestModule module(machine->image_handle());
  module.devices = {FakeDevice(u"Only")};
  module.algorithms = {FakeAlgorithm(u"Walk", u"WALK")};
  AsksThenFails::runs = 0;
  module.record()->RunTest = AsksThenFails::Run;
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});
  EXPECT_EQ(result_line(machine->console().snapshot("outcome").grid, 8), "Walk PASSED");
  const hostfw::ScreenGrid& error = machine->console().snapshot("error").grid;
  EXPECT_TRUE(error.contains("Error"));
  EXPECT_TRUE(error.contains("Press ENTER to continue."));
  EXPECT_FALSE(error.contains("F3 = view log"));
}

// ---- The memory test itself, its log and the saved file ----------------------

// The log view of a module's messages and of every way an algorithm ends:
// kind words and upper-case words go through the module's TranslateKey (the
// test double's gives the key back), anything else shows as it is.
// ESC during the second algorithm cancels it and leaves the rest on queue;
// the device not yet tested still gets its result code.
TEST(RunScreen, EscCancelsTheAlgorithmAndTheLogShowsMessagesAndEachResultInItsColour) {
  // The algorithm list: every entry ticked, a blank, the all-line, a blank
  // and the confirm line; Space unticks the first.
  TestMachine machine("wait \"Main Screen\"; key Enter; wait \"Select Devices\"; key Enter; wait \"Select Algorithms\";"
                      "snap \"algorithms\"; key Space; snap \"one unticked\"; key Space; key Enter;"
                      "wait \"Seek  IN PROGRESS\"; key Esc; wait \"F3 = view log\"; snap \"outcome\"; key F3;"
                      "wait \"F2 = save log\"; snap \"log\"; key Esc;" + std::string(kLeave));
  FakeTestModule module(machine->image_handle());
  module.devices = {FakeDevice(u"Disk A", {{u"UID:", u"D1"}, {u"DISPLAYNAME:", u"Disk A"}}),
                    FakeDevice(u"Disk B", {{u"UID:", u"D2"}, {u"DISPLAYNAME:", u"Disk B"}})};
  module.algorithms = {FakeAlgorithm(u"Read", u"READ", tarvik::TEST_RESULT_FAILED), FakeAlgorithm(u"Seek", u"SEEK"),
                       FakeAlgorithm(u"Smart", u"SMART")};
  module.algorithms[0].messages = {u"ERROR WRITE_READ_ERROR WROTE 5 READ 7", u"MESSAGE note:x", u"NOTICE TEXT"};
  module.algorithms[1].busy_ms = 5000;
  run_to_reset(machine, ApplicationSetup{.modules = {&module}});

  const hostfw::ScreenGrid& outcome = machine->console().snapshot("outcome").grid;
  EXPECT_TRUE(module.stop_requested);
  EXPECT_EQ(module.runs.size(), 2u);
  for (const auto& [row, line] : {std::pair{9, "Seek  CANCELED"}, {10, "Smart ON QUEUE"}, {15, "Read  ON QUEUE"}})
    EXPECT_EQ(result_line(outcome, row), line);
  for (int row : {12, 19}) EXPECT_EQ(result_line(outcome, row).substr(0, 17), "Result Code: UFK0") << row;
  const hostfw::ScreenGrid& list = machine->console().snapshot("algorithms").grid;
  const auto line = [](const hostfw::ScreenGrid& grid, int row) { return trimmed(grid.text_at(30, row, 40)); };
  EXPECT_NE(list.row_text(1).find("Fake Device Test"), std::string::npos);
  EXPECT_NE(list.row_text(29).find("ESC = exit  Arrow Keys = change option  Space = select/deselect  ENTER = run test"),
            std::string::npos);
  EXPECT_EQ(line(list, 3), std::string(11, ' ') + "Select Algorithms");  // centred in columns 30 to 69
  EXPECT_EQ(list.text_at(29, 4, 1) + list.text_at(70, 12, 1), "╔╝");
  std::string lines;
  for (int row = 5; row <= 11; ++row) lines += line(list, row) + "|";
  EXPECT_EQ(lines, "[X] Read|[X] Seek|[X] Smart||[X] Select/deselect all||    Run Test >|");
  // The cursor line is highlighted to the box's edge.
  EXPECT_EQ(std::tuple(list.attribute_at(30, 5), list.attribute_at(69, 5), list.attribute_at(30, 6)),
            std::tuple(0x1F, 0x1F, 0x30));
  const hostfw::ScreenGrid& unticked = machine->console().snapshot("one unticked").grid;
  EXPECT_EQ(line(unticked, 5) + "|" + line(unticked, 9), "[ ] Read|[-] Select/deselect all");

  const hostfw::ScreenGrid& log = machine->console().snapshot("log").grid;
  // The time stamp of a line, then what follows it.
  const auto after_time = [&](int row) { return trimmed(log.row_text(row)).substr(20); };
  EXPECT_EQ(trimmed(log.row_text(4)).substr(0, 8), " FAKE - ");
  EXPECT_EQ(trimmed(log.row_text(6)).substr(0, 27), " Disk A - Result Code: UFK0");
  EXPECT_EQ(trimmed(log.row_text(7)), " Start Tests");
  EXPECT_EQ(after_time(8), " Start READ");
  EXPECT_EQ(after_time(9), " Error WRITE_READ_ERROR WROTE 5 READ 7");
  EXPECT_EQ(after_time(10), " Message note:x");
  EXPECT_EQ(after_time(11), " NOTICE TEXT");
  EXPECT_EQ(after_time(12), " Stop READ FAILED 0s");
  EXPECT_EQ(log.attribute_at(32, 12), 0x34);
  EXPECT_EQ(after_time(14), " Stop SEEK CANCELED 0s");
  EXPECT_EQ(log.attribute_at(32, 14), 0x31);
  EXPECT_EQ(after_time(16), " Stop SMART NOT EXECUTED");
  EXPECT_EQ(log.attribute_at(33, 16), 0x31);
  EXPECT_EQ(log.attribute_at(46, 16), 0x30) << "the colour ends with the result";
  EXPECT_EQ(trimmed(log.row_text(17)), " Stop Tests");
}

void small_machine(hostfw::Profile& p) {
  p.memory_mib = 64;
  for (auto& m : p.memory_modules) m.size_mib = m.size_mib == 0 ? 0 : 16;  // modules that add up to the memory
}

TEST(MemoryRun, ThePassedRunsLogReadsAsTheTechnicianExpects) {
  TestMachine machine("wait \"Main Screen\"; key Enter; wait 600 \"F3 = view log\"; key F3; wait \"F2 = save log\";"
                      "snap \"log\"; key End; snap \"log end\"; key Esc;" + std::string(kLeave),
                      small_machine);
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  const hostfw::ConsoleOut& console = machine->console();
  const hostfw::ScreenGrid& log = console.snapshot("log").grid;
  EXPECT_EQ(trimmed(log.row_text(3)), " Tarvik Diagnostic Log");
  EXPECT_EQ(trimmed(log.row_text(4)), " Memory - 2026/11/22 09:30:00");
  // After End the log's last lines fill the bottom of the view.
  const hostfw::ScreenGrid& end = console.snapshot("log end").grid;
  EXPECT_EQ(trimmed(end.row_text(25)), " 2026/11/22 09:30:00 Message Processors: 4");  // the default machine's
  EXPECT_EQ(trimmed(end.row_text(26)), " 2026/11/22 09:30:00 Stop Advanced Integrity Test PASSED 0s");
  EXPECT_EQ(end.attribute_at(52, 26), 0x02);
  EXPECT_EQ(trimmed(end.row_text(27)), " Stop Tests");
}

}  // namespace
