#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/diag_common.h"
#include "core/locate.h"
#include "log/line_store.h"
#include "log/log_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::FakeTestModule;
using testing_support::TestMachine;
using testing_support::utf8;
using tarvik::QueueState;

EFI_TIME at(UINT16 year, UINT8 month, UINT8 day, UINT8 hour, UINT8 minute, UINT8 second) {
  return EFI_TIME{year, month, day, hour, minute, second, 0, 0, 0, 0, 0};
}
EFI_TIME seconds(UINT8 minutes, UINT8 secs) { return at(0, 0, 0, 0, minutes, secs); }

// The data() of every row.
template <typename Row>
auto data_of(std::vector<Row>& rows) {
  std::vector<decltype(rows[0].data())> out;
  for (Row& row : rows) out.push_back(row.data());
  return out;
}

// What the run screen collected, in the shapes the log takes them; by
// default one device and one algorithm that passed in a second.
struct RunRecord {
  std::vector<std::vector<UINT8>> states = {{2}};  // [device][algorithm]
  std::vector<UINT8> algorithm_selection = {1};
  std::vector<UINT8> device_selection = {1};
  std::vector<std::u16string> result_codes = {u"X"};
  std::vector<EFI_TIME> times = {at(2025, 1, 1, 0, 0, 0), at(2025, 1, 1, 0, 0, 1), at(2025, 1, 1, 0, 0, 2)};
  std::vector<EFI_TIME> durations = {seconds(0, 1)};
  std::vector<std::vector<std::vector<std::u16string>>> messages = {{{}}};  // [device][algorithm][n]
};

class Log : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallTestCollection(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallLog(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    log = tarvik::LocateService<tarvik::LogProtocol>(tarvik::LogProtocolGuid);
    ASSERT_NE(log, nullptr);
  }
  void TearDown() override {
    log->FreeLog();
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }

  EFI_STATUS build(UINT64 module_index, RunRecord& run) {
    std::vector<std::vector<std::vector<CHAR16*>>> texts;
    std::vector<std::vector<UINT64>> counts;
    for (auto& device : run.messages) {
      texts.emplace_back();
      counts.emplace_back();
      for (auto& cell : device) {
        texts.back().push_back(data_of(cell));
        counts.back().push_back(cell.size());
      }
    }
    std::vector<std::vector<CHAR16**>> per_algorithm;
    for (auto& device : texts) per_algorithm.push_back(data_of(device));
    auto states = data_of(run.states);
    auto codes = data_of(run.result_codes);
    auto per_device = data_of(per_algorithm);
    auto count_rows = data_of(counts);
    return log->BuildTestLog(module_index, states.data(), run.algorithm_selection.data(), run.device_selection.data(),
                             codes.data(), run.times.data(), run.durations.data(), nullptr, 0,
                             per_device.data(), count_rows.data());
  }

  std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (UINT64 i = 0; i < log->GetLineCount(); ++i) {
      CHAR16* copy = nullptr;
      EXPECT_EQ(log->GetLine(i, &copy), EFI_SUCCESS);
      all.push_back(utf8(copy));
      machine->boot_services()->FreePool(copy);
    }
    return all;
  }

  // A query's text, or "(untouched)" when it left the out-text alone.
  template <typename Query>
  std::string text_of(Query query) {
    CHAR16* text = nullptr;
    EXPECT_EQ(query(&text), EFI_SUCCESS);
    if (text == nullptr) return "(untouched)";
    std::string result = utf8(text);
    machine->boot_services()->FreePool(text);
    return result;
  }

  TestMachine machine;
  tarvik::LogProtocol* log = nullptr;
};

TEST_F(Log, StopLinesFollowTheQueueStateAndOnlyRunAlgorithmsAdvanceTheTime) {
  FakeTestModule module(machine->image_handle());
  module.algorithms = {{u"A", u"ALPHA"}, {u"B", u"BETA"}, {u"C", u"GAMMA"}, {u"D", u"DELTA"}, {u"E", u"EPSILON"}};
  module.devices = {{u"Disk", {{u"UID:", u"D1"}}, {}}};
  ASSERT_EQ(testing_support::located_test_collection()->AddTest(module.record()), EFI_SUCCESS);
  RunRecord run;
  run.states = {{0, 5, 6, 4, 3}};
  run.algorithm_selection = {1, 1, 1, 1, 1};
  run.result_codes = {u"UFK00F00F-AAAAAA"};
  run.times = {at(2025, 1, 2, 3, 4, 5), at(2025, 1, 2, 3, 4, 6), at(2025, 1, 2, 3, 4, 7), at(2025, 1, 2, 3, 4, 8),
               at(2025, 1, 2, 3, 4, 9), at(2025, 1, 2, 3, 4, 10)};
  run.durations = {seconds(0, 1), seconds(0, 2), seconds(0, 3), at(0, 0, 0, 1, 0, 4)};
  run.messages = {{{u"WARNING SKIPPED_NOTE"}, {}, {}, {}, {u"ERROR READ_SECTOR_ERROR 17", u"CRITICAL GIVE_UP"}}};
  ASSERT_EQ(build(0, run), EFI_SUCCESS);

  const std::vector<std::string> expected = {
      "+++ 20250102T030405UTC FAKE 1735787045000",
      "UID: D1",
      "START TESTS",
      "20250102T030406UTC START ALPHA",
      "20250102T030406UTC WARNING SKIPPED_NOTE",
      "20250102T030406UTC STOP ALPHA SKIPPED",  // not run: same time, no duration
      "20250102T030406UTC START BETA",
      "20250102T030407UTC STOP BETA UNSUPPORTED",  // not supported: its duration is skipped
      "20250102T030407UTC START GAMMA",
      "20250102T030408UTC STOP GAMMA UNSUPPORTED 2 S",  // not executed keeps its duration
      "20250102T030408UTC START DELTA",
      "20250102T030409UTC STOP DELTA ABORTED 3 S",
      "20250102T030409UTC START EPSILON",
      "20250102T030409UTC ERROR READ_SECTOR_ERROR 17",
      "20250102T030409UTC CRITICAL GIVE_UP",
      "20250102T030410UTC STOP EPSILON FAILURE 3604 S",
      "STOP TESTS UFK00F00F-AAAAAA",
      "--- FAKE",
  };
  EXPECT_EQ(lines(), expected);
}

TEST_F(Log, QueriesFindEachDeviceOfATwoDeviceLog) {
  FakeTestModule module(machine->image_handle());
  module.algorithms = {{u"Smart Status", u"SMART_STATUS"}};
  module.devices = {{u"A", {{u"UID:", u"WD-1"}, {u"DISPLAYNAME:", u"Kestrel KV1 SSD"}}, {}},
                    {u"B", {{u"UID:", u"WD-2"}, {u"DISPLAYNAME:", u"Not Tested"}}, {}},
                    {u"C", {{u"UID:", u"WD-3"}, {u"DISPLAYNAME:", u"Ostrava 2TB"}}, {}}};
  ASSERT_EQ(testing_support::located_test_collection()->AddTest(module.record()), EFI_SUCCESS);
  RunRecord run;
  run.states = {{2}, {0}, {3}};
  run.device_selection = {1, 0, 1};  // the second drive was not chosen
  run.result_codes = {u"UHD001000-AAAAAA", u"", u"UHD001001-BBBBBB"};
  run.times = {at(2025, 6, 1, 8, 0, 0), at(2025, 6, 1, 8, 0, 1), at(2025, 6, 1, 8, 0, 2), at(2025, 6, 1, 8, 0, 3)};
  run.durations = {seconds(0, 1), seconds(0, 1)};
  run.messages = {{{}}, {{}}, {{}}};
  ASSERT_EQ(build(0, run), EFI_SUCCESS);

  EXPECT_EQ(log->GetLogDeviceCount(), 2u);
  const auto name = [&](UINT64 i) { return text_of([&](CHAR16** t) { return log->GetLogDisplayName(t, i); }); };
  const auto code = [&](UINT64 i) { return text_of([&](CHAR16** t) { return log->GetLogResultCode(t, i); }); };
  EXPECT_EQ(name(0) + "|" + name(1) + "|" + name(5), "Kestrel KV1 SSD|Ostrava 2TB|(untouched)");
  EXPECT_EQ(code(0) + "|" + code(1) + "|" + code(2), "UHD001000-AAAAAA|UHD001001-BBBBBB|(untouched)");
  EXPECT_EQ(log->GetLogFirstDeviceLineCount(), 4u);  // START TESTS, START, STOP, STOP TESTS
  EXPECT_NE(lines()[8], "") << "the second device's section follows the first directly";
}

TEST_F(Log, RowsThatFitAreKeptWholeAndFreeingEmptiesTheLog) {
  FakeTestModule module(machine->image_handle());
  module.algorithms = {{u"A", u"ALPHA"}};
  module.devices = {{u"D", {{u"NOTE:", std::u16string(144, u'n')}}, {}}};
  ASSERT_EQ(testing_support::located_test_collection()->AddTest(module.record()), EFI_SUCCESS);
  RunRecord run;
  ASSERT_EQ(build(0, run), EFI_SUCCESS);
  EXPECT_EQ(lines()[1].size(), 150u);  // "NOTE: " and 144 characters, all of them

  // Stripping a duration's suffix is read on the run screen's log
  // (RunScreen.TheLogShowsMessagesAndEachResultInItsColour).
  EXPECT_EQ(log->FreeLog(), EFI_SUCCESS);
  EXPECT_EQ(log->GetLineCount(), 0u);
  EXPECT_EQ(log->GetLogFirstDeviceLineCount(), 0u);
  CHAR16* untouched = nullptr;
  EXPECT_EQ(log->GetLogModuleKey(&untouched), EFI_NOT_FOUND);
  EXPECT_EQ(untouched, nullptr);
}

TEST(LogTime, MillisecondsCountLeapDaysAndStartIn1970) {
  // The header lines of the logs above count the leap days up to 2025, 2000's among them.
  EXPECT_EQ(tarvik::MillisecondsSince1970(at(1969, 12, 31, 23, 59, 59)), 0u);
  CHAR16 stamp[tarvik::TimeStampChars + 1];
  tarvik::FormatTimeStamp(at(12345, 123, 7, 9, 60, 5), stamp);
  EXPECT_EQ(utf8(stamp), "23452307T096005UTC");  // too-large values keep their lowest digits
}

}  // namespace
