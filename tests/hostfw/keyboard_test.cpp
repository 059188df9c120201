// The simulated keyboard: terminal byte decoding and the key-script
// language. Scripted keys reaching the application through the protocol,
// after the screen they wait for, are what every screen test runs on.
#include "hostfw/keyboard.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "hostfw/key_script.h"

namespace {

using hostfw::KeyDecoder;
using hostfw::KeyScript;
using hostfw::KeyStep;

constexpr uint64_t kMs = 1000 * 1000;

struct Key {
  UINT16 scan;
  CHAR16 ch;
  bool operator==(const Key&) const = default;
};

Key scan(UINT16 code) { return {code, 0}; }
Key chr(char16_t c) { return {SCAN_NULL, c}; }

std::vector<Key> drain(KeyDecoder& decoder) {
  std::vector<Key> keys;
  EFI_INPUT_KEY key;
  while (decoder.pop(key)) keys.push_back({key.ScanCode, key.UnicodeChar});
  return keys;
}

// The keys of bytes that arrive at once, followed by a pause.
std::vector<Key> decode(std::string_view bytes) {
  KeyDecoder decoder;
  decoder.feed(bytes, 0);
  decoder.expire(KeyDecoder::kEscapeDelayNs);
  return drain(decoder);
}

TEST(KeyDecoderTest, DecodesTheSequencesOfCommonTerminals) {
  const struct {
    const char* bytes;
    std::vector<Key> keys;
  } cases[] = {
      {"\x1b[A", {scan(SCAN_UP)}},       {"\x1bOA", {scan(SCAN_UP)}},        {"\x1b[1;5D", {scan(SCAN_LEFT)}},
      {"\x1b[H", {scan(SCAN_HOME)}},     {"\x1b[7~", {scan(SCAN_HOME)}},     {"\x1bOF", {scan(SCAN_END)}},
      {"\x1b[6~", {scan(SCAN_PAGE_DOWN)}}, {"\x1b[3~", {scan(SCAN_DELETE)}}, {"\x1b[[A", {scan(SCAN_F1)}},
      {"\x1b[1;2R", {scan(SCAN_F3)}},    {"\x1b[21~", {scan(SCAN_F10)}},     {"\x1b", {scan(SCAN_ESC)}},
      {"\n", {chr(0x0D)}},               {"\t", {chr(0x09)}},                {"\x7f", {chr(0x08)}},
      {"y", {chr(u'y')}},                {"\xc3\xa9", {chr(u'\u00e9')}},     {"\xe2\x82\xac", {chr(u'\u20ac')}},
      {"\r\n", {chr(0x0D)}},             {"\n\n", {chr(0x0D), chr(0x0D)}},
      {"\x1b\x1b", {scan(SCAN_ESC), scan(SCAN_ESC)}},
      // Unknown input is dropped without stray characters; the "a" after it comes through alone.
      {"\x1b[99~a", {chr(u'a')}},        {"\x1b[<0;12;5Ma", {chr(u'a')}},    {"\x1bxa", {chr(u'a')}},  // Alt-x
      {"\x01\x02\x1f" "a", {chr(u'a')}}, {"\x80\xff" "a", {chr(u'a')}},     {"\xf0\x9f\x98\x80" "a", {chr(u'a')}},
      {"\x1b[1", {}},  // a sequence cut short, and the pause shows nothing follows
  };
  for (const auto& c : cases)
    EXPECT_EQ(decode(c.bytes), c.keys) << "bytes: " << testing::PrintToString(std::string(c.bytes));
}

TEST(KeyDecoderTest, SequencesSplitAcrossReadsStayWholeAndEscapeWaitsForAPause) {
  KeyDecoder decoder;
  for (char b : std::string("\x1b[12~a\x1bOB\xe2\x82\xac")) decoder.feed(std::string(1, b), 0);
  EXPECT_EQ(drain(decoder), (std::vector<Key>{scan(SCAN_F2), chr(u'a'), scan(SCAN_DOWN), chr(u'\u20ac')}));
  EXPECT_FALSE(decoder.holding());

  decoder.feed("\x1b", 100 * kMs);
  decoder.expire(100 * kMs + KeyDecoder::kEscapeDelayNs - 1);
  EXPECT_TRUE(drain(decoder).empty()) << "a sequence may still follow";
  decoder.feed("[A", 120 * kMs);  // it did: an arrow, not Escape
  EXPECT_EQ(drain(decoder), std::vector<Key>{scan(SCAN_UP)});
  decoder.feed("\x1b", 200 * kMs);
  decoder.expire(200 * kMs + KeyDecoder::kEscapeDelayNs);
  EXPECT_EQ(drain(decoder), std::vector<Key>{scan(SCAN_ESC)});
}

TEST(KeyScriptTest, ParsesQuotedTextsCountsCommentsAndLines) {
  const KeyScript script(
      "# start\n"
      "wait \"Main Screen\"\n"
      "key down 2; key F10   # confirm\n"
      "wait 30 \"say \\\"hi\\\"\"; pause 250\n"
      "type \"\\\\\u00e9\"; key Backspace; key \";\"\n");
  const std::vector<KeyStep>& s = script.steps();
  ASSERT_EQ(s.size(), 10u);
  EXPECT_EQ(s[0].text + " " + std::to_string(s[0].duration_ns / kMs), "Main Screen 60000");
  EXPECT_EQ(s[2].key.ScanCode, SCAN_DOWN) << "a count repeats the key";
  EXPECT_EQ(s[4].text + " " + std::to_string(s[4].duration_ns / kMs), "say \"hi\" 30000");
  EXPECT_EQ(s[5].kind == KeyStep::Kind::Pause ? s[5].duration_ns : 0, 250 * kMs);
  EXPECT_EQ(std::u16string({s[6].key.UnicodeChar, s[7].key.UnicodeChar, s[8].key.UnicodeChar, s[9].key.UnicodeChar}),
            u"\\\u00e9\b;");
  EXPECT_EQ((std::vector<int>{s[0].line, s[3].line, s[9].line}), (std::vector<int>{2, 3, 5})) << "where written";
}

TEST(KeyScriptTest, MalformedScriptsNameTheLineAndTheReason) {
  const struct {
    const char* script;
    const char* expected;
  } cases[] = {
      {"key Enter\n\njump 3", "line 3: unknown step \"jump\""},
      {"key Entr", "line 1: unknown key \"Entr\""},
      {"wait \"Main", "line 1: a text is missing its closing quote"},
      {"wait 0 \"Main\"", "at least 1 second"},
      {"type abc", "type needs one text in double quotes"},
      {"key Up\nkey Up; key Up; pause soon", "line 2: the pause must be a whole number"},
      {"snap main", "snap needs a name in double quotes"},
  };
  for (const auto& c : cases) {
    try {
      KeyScript script(c.script);
      ADD_FAILURE() << "accepted: " << c.script;
    } catch (const std::invalid_argument& e) {
      const std::string message = e.what();
      EXPECT_TRUE(message.starts_with("key script line ") && message.find(c.expected) != std::string::npos) << message;
    }
  }
}

}  // namespace
