// The one reader of log lines: what it takes for the stamp, the keyword, the
// module key and the rest of each kind of line the builders write, and of
// lines that only look like them.
#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "log/log_line.h"
#include "tests/support/test_machine.h"

namespace {

using tarvik::LogWord;
using tarvik::ParsedLogLine;
using tarvik::ParseLogLine;

std::string text(const LogWord& word) {
  return testing_support::utf8(std::u16string(word.Start, word.Length).c_str());
}

TEST(LogLine, EachKindOfLineSplitsIntoItsParts) {
  struct Case {
    const char16_t* line;
    bool stamped;
    const char* stamp;
    const char* keyword;
    const char* module_key;
    const char* rest;
  };
  const Case cases[] = {
      {u"+++ 20240315T101500UTC MEMORY 1710497700000", false, "20240315T101500UTC", "+++", "MEMORY",
       " 20240315T101500UTC MEMORY 1710497700000"},
      {u"--- MEMORY", false, "", "---", "MEMORY", " MEMORY"},
      {u"--- 20250203T050607UTC RECOVER", false, "20250203T050607UTC", "---", "RECOVER",
       " 20250203T050607UTC RECOVER"},
      {u"+++ 20240315T101500UTC  17", false, "20240315T101500UTC", "+++", "", " 20240315T101500UTC  17"},
      {u"20240315T101616UTC STOP ADVANCED_INTEGRITY SUCCESS 75 S", true, "20240315T101616UTC", "STOP", "",
       " ADVANCED_INTEGRITY SUCCESS 75 S"},
      {u"20240315T101501UTC", true, "20240315T101501UTC", "", "", ""},
      {u"------------------ ERROR GIVE_UP", true, "------------------", "ERROR", "", " GIVE_UP"},
      {u">>> RESOURCE BANK  ", false, "", ">>>", "", " RESOURCE BANK  "},
      {u"", false, "", "", "", ""},
      // Near misses of a stamp: a letter among the digits, a missing zone, a line too short.
      {u"2024031XT101500UTC START A", false, "", "2024031XT101500UTC", "", " START A"},
      {u"20240315T101500UTX START A", false, "", "20240315T101500UTX", "", " START A"},
      {u"20240315T1015UTC", false, "", "20240315T1015UTC", "", ""},
      {u"+++ 2024031 MEMORY", false, "", "+++", "2024031", " 2024031 MEMORY"},
  };
  for (const Case& c : cases) {
    const std::string line = testing_support::utf8(c.line);
    const ParsedLogLine parsed = ParseLogLine(c.line);
    EXPECT_EQ(parsed.TimeStamped != FALSE, c.stamped) << line;
    EXPECT_EQ(text(parsed.Stamp), c.stamp) << line;
    EXPECT_EQ(text(parsed.Keyword), c.keyword) << line;
    EXPECT_EQ(text(parsed.ModuleKey), c.module_key) << line;
    EXPECT_EQ(testing_support::utf8(parsed.Rest), c.rest) << line;
  }
  const ParsedLogLine none = ParseLogLine(nullptr);
  EXPECT_EQ(none.Keyword.Length + none.Stamp.Length, 0u);
}

// The usual value and result code are read by the log's queries (Log.QueriesFindEachDeviceOfATwoDeviceLog).
TEST(LogLine, FieldsOfResourceAndDeviceEndLines) {
  const std::pair<const char16_t*, const char*> values[] = {
      {u"DISPLAYNAME:", ""},
      {u"UID SN-1", "SN-1"},
  };
  for (const auto& [line, value] : values)
    EXPECT_EQ(testing_support::utf8(tarvik::ResourceValue(ParseLogLine(line))), value) << value;

  const std::pair<const char16_t*, const char*> codes[] = {
      {u"STOP TESTS", ""},
      {u"STOP TESTS CODE trailing", "CODE"},
  };
  for (const auto& [line, code] : codes) EXPECT_EQ(text(tarvik::DeviceResultCode(ParseLogLine(line))), code);
}

TEST(LogLine, WordsStopAtBlanksAndColonsAndCompareWhole) {
  const LogWord key = tarvik::WordAt(u"MANUFACTURER: Kestrel");
  EXPECT_EQ(text(key), "MANUFACTURER");
  EXPECT_EQ(text(tarvik::WordAfter(key)), "");  // the blank after the colon ends the next word at once
  EXPECT_EQ(text(tarvik::WordAfter(tarvik::WordAt(u"STOP ALPHA"))), "ALPHA");
  EXPECT_EQ(text(tarvik::WordAfter(tarvik::WordAt(u"STOP"))), "");
  EXPECT_TRUE(key.Is(u"MANUFACTURER"));
  EXPECT_FALSE(key.Is(u"MANUFACTURE"));
  EXPECT_FALSE(key.Is(u"MANUFACTURERS"));
  // Lines are selected by their first characters, as the queries always did.
  EXPECT_FALSE(tarvik::LineBeginsWith(u"UI", u"UID"));
}

}  // namespace
