// The results line: JSON escaping of any text, the bound on its size, and
// findings read from module messages by their shape alone.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log/log_protocol.h"
#include "log/results_line.h"

namespace {

std::string written(void (*write)(tarvik::JsonWriter&), size_t capacity = 4096) {
  std::vector<uint8_t> buffer(capacity);
  tarvik::JsonWriter json(buffer.data(), capacity);
  write(json);
  return json.Complete() ? std::string(buffer.begin(), buffer.begin() + json.Size()) : "(incomplete)";
}

TEST(JsonWriter, EscapesQuotesControlBytesAndWritesUtf8) {
  EXPECT_EQ(written([](tarvik::JsonWriter& j) {
              j.BeginObject().Key("a").String(u"q\"b\\c\n\x01\x7f").Key("b").String(u"\u00e9\u20ac\U0001F600");
              j.Key("c").String(u"\xd800x\xdc00").Key("d").Null().Key("e").BeginArray().Number(0).Number(~0ull);
              j.EndArray().EndObject();
            }),
            "{\"a\":\"q\\\"b\\\\c\\u000a\\u0001\\u007f\",\"b\":\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\","
            "\"c\":\"\xef\xbf\xbdx\xef\xbf\xbd\",\"d\":null,\"e\":[0,18446744073709551615]}");
  // Never past the buffer; an unclosed or overfull text is not complete.
  EXPECT_EQ(written([](tarvik::JsonWriter& j) { j.BeginArray().String(u"0123456789"); }), "(incomplete)");
  EXPECT_EQ(written([](tarvik::JsonWriter& j) { j.BeginArray().String(u"0123456789").EndArray(); }, 8),
            "(incomplete)");
}

// The results line of LogLines as a test log without a module.
std::string results(const std::vector<std::u16string>& log_lines, bool tool = false) {
  const std::u16string canceled = u"Test canceled by User.";
  std::vector<CHAR16> block(log_lines.size() * tarvik::LogLineChars, 0);
  for (size_t l = 0; l < log_lines.size(); ++l)
    std::copy(log_lines[l].begin(), log_lines[l].end(), block.begin() + l * tarvik::LogLineChars);
  const EFI_TIME start = {2026, 1, 15, 8, 0, 0, 0, 0, 0, 0, 0}, end = {2026, 1, 15, 8, 1, 40, 0, 0, 0, 0, 0};
  const tarvik::ResultsRun run{.Tool = tool, .Started = &start, .Ended = &end, .ToolCanceledLine = canceled.c_str(),
                               .Machine = {}, .Lines = block.data(), .LineCount = log_lines.size()};
  std::vector<uint8_t> buffer(tarvik::ResultsLineCapacity(run));
  tarvik::JsonWriter json(buffer.data(), buffer.size());
  tarvik::WriteResultsLine(json, run);
  EXPECT_TRUE(json.Complete());
  return std::string(buffer.begin(), buffer.begin() + json.Size());
}

TEST(ResultsLine, FindingsComeFromTheShapeOfAModulesLines) {
  const std::string line = results({
      u"+++ 20260115T080000UTC NVME 1768464000000",
      u"UID: X1",
      u"DISPLAYNAME: Disk",
      u"SERIAL: -",
      u">>> RESOURCE BANK",
      u"SIZE: 8 GB",
      u"<<< RESOURCE",
      u"START TESTS",
      u"20260115T080000UTC START HEALTH",
      u"20260115T080000UTC MESSAGE SMART_HEALTH TEMPERATURE 35 MEDIA_ERRORS 0 RATED 1,024 MB",
      u"20260115T080000UTC ERROR READ_SECTOR_ERROR 0x10",
      u"20260115T080001UTC STOP HEALTH FAILURE 12 S",
      u"20260115T080001UTC START SCAN",
      u"20260115T080001UTC ERROR READ_SECTOR_ERROR 16",
      u"20260115T080001UTC STOP SCAN FAILURE 0 S",
      u"20260115T080001UTC START SKIPPED_ONE",
      u"20260115T080001UTC STOP SKIPPED_ONE SKIPPED",
      u"STOP TESTS UNV001001-ABCDEF",
      u"--- NVME",
  });
  for (const char* expected : {
           "\"name\":\"Disk\",\"serial_number\":null,\"size\":null,\"result_code\":\"UNV001001-ABCDEF\"",
           "\"groups\":[{\"group\":\"BANK\",\"properties\":{\"SIZE\":\"8 GB\"}}]",
           "{\"severity\":\"message\",\"key\":\"SMART_HEALTH\",\"fields\":{\"temperature\":35,\"media_errors\":0,"
           "\"rated\":1024},\"text\":\"MB\"}",
           "\"unreadable_lbas\":[16]",
           "\"outcome\":\"failed\",\"seconds\":12}",
           "\"key\":\"SKIPPED_ONE\",\"findings\":[],\"outcome\":\"not_run\",\"seconds\":null}",
       })
    EXPECT_NE(line.find(expected), std::string::npos) << expected << "\n" << line;
}

// A tool's log fails on the sectors its numbered lines name, passes
// without one, and a cancelled run is cancelled whatever it found.
TEST(ResultsLine, AToolLogFailsOnTheSectorsItsNumberedLinesName) {
  std::vector<std::u16string> log = {u"+++ 20260115T080000UTC RECOVER", u"Operation: Check", u"Device 0: Disk ",
                                     u"Size: 1 GB", u"Error #001 in sector 77", u"Done", u"--- RECOVER"};
  std::string line = results(log, true);
  EXPECT_NE(line.find("\"name\":\"Disk\""), std::string::npos) << line;
  EXPECT_NE(line.find("\"unreadable_lbas\":[77]"), std::string::npos) << line;
  EXPECT_NE(line.find("\"outcome\":\"failed\",\"seconds\":100}"), std::string::npos) << line;
  log[5] = u"Test canceled by User.";
  EXPECT_NE(results(log, true).find("\"outcome\":\"canceled\""), std::string::npos);
  log[4] = u"Bad sectors found = 0";
  log[5] = u"Done";
  line = results(log, true);
  EXPECT_NE(line.find("\"unreadable_lbas\":[],"), std::string::npos) << line;
  EXPECT_NE(line.find("\"outcome\":\"passed\""), std::string::npos) << line;
}

}  // namespace
