// The simulated keyboard: terminal byte decoding, the key-script language,
// and scripted keys reaching the application through the protocol.
#include "hostfw/keyboard.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hostfw/console_out.h"
#include "hostfw/key_script.h"
#include "hostfw/machine.h"

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

std::ostream& operator<<(std::ostream& out, const Key& k) {
  return out << "{scan " << k.scan << ", char " << static_cast<unsigned>(k.ch) << "}";
}

std::vector<Key> drain(KeyDecoder& decoder) {
  std::vector<Key> keys;
  EFI_INPUT_KEY key;
  while (decoder.pop(key)) keys.push_back({key.ScanCode, key.UnicodeChar});
  return keys;
}

std::vector<Key> decode(std::string_view bytes) {
  KeyDecoder decoder;
  decoder.feed(bytes, 0);
  decoder.expire(KeyDecoder::kEscapeDelayNs);
  return drain(decoder);
}

Key scan(UINT16 code) { return {code, 0}; }
Key chr(char16_t c) { return {SCAN_NULL, c}; }

// ---- Terminal bytes --------------------------------------------------------------------

TEST(KeyDecoderTest, DecodesTheSequencesOfCommonTerminals) {
  const struct {
    const char* bytes;
    Key key;
  } cases[] = {
      {"\x1b[A", scan(SCAN_UP)},       {"\x1bOA", scan(SCAN_UP)},        {"\x1b[1;5D", scan(SCAN_LEFT)},
      {"\x1b[H", scan(SCAN_HOME)},     {"\x1b[7~", scan(SCAN_HOME)},     {"\x1bOF", scan(SCAN_END)},
      {"\x1b[6~", scan(SCAN_PAGE_DOWN)}, {"\x1b[3~", scan(SCAN_DELETE)}, {"\x1b[[A", scan(SCAN_F1)},
      {"\x1b[1;2R", scan(SCAN_F3)},    {"\x1b[21~", scan(SCAN_F10)},     {"\x1b", scan(SCAN_ESC)},
      {"\n", chr(0x0D)},               {"\t", chr(0x09)},                {"\x7f", chr(0x08)},
      {"y", chr(u'y')},                {"\xc3\xa9", chr(u'\u00e9')},     {"\xe2\x82\xac", chr(u'\u20ac')},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(decode(c.bytes), std::vector<Key>{c.key}) << "bytes: " << testing::PrintToString(std::string(c.bytes));
  }
  EXPECT_EQ(decode("\r\n"), std::vector<Key>{chr(0x0D)}) << "CR LF is one Enter";
  EXPECT_EQ(decode("\n\n"), (std::vector<Key>{chr(0x0D), chr(0x0D)}));
}

TEST(KeyDecoderTest, SequencesSplitAcrossReadsStayWhole) {
  KeyDecoder decoder;
  const std::string bytes = "\x1b[12~a\x1bOB\xe2\x82\xac";
  for (char b : bytes) decoder.feed(std::string(1, b), 0);
  EXPECT_EQ(drain(decoder), (std::vector<Key>{scan(SCAN_F2), chr(u'a'), scan(SCAN_DOWN), chr(u'\u20ac')}));
  EXPECT_FALSE(decoder.holding());
}

TEST(KeyDecoderTest, ALoneEscapeIsTheEscapeKeyOnlyAfterAPause) {
  KeyDecoder decoder;
  decoder.feed("\x1b", 100 * kMs);
  decoder.expire(100 * kMs + KeyDecoder::kEscapeDelayNs - 1);
  EXPECT_TRUE(drain(decoder).empty()) << "a sequence may still follow";
  decoder.feed("[A", 120 * kMs);  // it did: an arrow, not Escape
  EXPECT_EQ(drain(decoder), std::vector<Key>{scan(SCAN_UP)});

  decoder.feed("\x1b", 200 * kMs);
  decoder.expire(200 * kMs + KeyDecoder::kEscapeDelayNs);
  EXPECT_EQ(drain(decoder), std::vector<Key>{scan(SCAN_ESC)});

  decoder.feed("\x1b\x1b", 300 * kMs);  // Escape twice
  decoder.expire(300 * kMs + KeyDecoder::kEscapeDelayNs);
  EXPECT_EQ(drain(decoder), (std::vector<Key>{scan(SCAN_ESC), scan(SCAN_ESC)}));
}

TEST(KeyDecoderTest, UnknownInputIsDroppedWithoutStrayCharacters) {
  // Each is followed by "a", which must come through alone.
  const char* noise[] = {
      "\x1b[99~",        // no such key
      "\x1b[<0;12;5M",   // a mouse report
      "\x1bx",           // Alt-x
      "\x01\x02\x1f",    // control characters
      "\x80\xff",        // not UTF-8
      "\xf0\x9f\x98\x80",  // outside what a key can carry
  };
  for (const char* n : noise) {
    EXPECT_EQ(decode(std::string(n) + "a"), std::vector<Key>{chr(u'a')})
        << "bytes: " << testing::PrintToString(std::string(n));
  }
  // A sequence cut short is dropped once the pause shows nothing follows.
  EXPECT_TRUE(decode("\x1b[1").empty());
}

// ---- The key-script language ------------------------------------------------------

TEST(KeyScriptTest, ParsesEveryKindOfStep) {
  const KeyScript script(
      "# start\n"
      "wait \"Main Screen\"\n"
      "key down 2; key Enter   # confirm\n"
      "wait 30 \"say \\\"hi\\\"\"; pause 250\n"
      "type \"y\\\\\u00e9\"\n"
      "key F10; key Backspace; key \";\"\n");
  const std::vector<KeyStep>& s = script.steps();
  ASSERT_EQ(s.size(), 12u);
  EXPECT_EQ(s[0].kind, KeyStep::Kind::Wait);
  EXPECT_EQ(s[0].text, "Main Screen");
  EXPECT_EQ(s[0].line, 2);
  EXPECT_EQ(s[2].key.ScanCode, SCAN_DOWN) << "a count repeats the key";
  EXPECT_EQ(s[2].line, 3);
  EXPECT_EQ(s[3].key.UnicodeChar, 0x0D);
  EXPECT_EQ(s[4].text, "say \"hi\"");
  EXPECT_EQ(s[4].duration_ns, 30 * 1000 * kMs);
  EXPECT_EQ(s[5].kind, KeyStep::Kind::Pause);
  EXPECT_EQ(s[5].duration_ns, 250 * kMs);
  EXPECT_EQ(s[7].key.UnicodeChar, u'\\');
  EXPECT_EQ(s[8].key.UnicodeChar, u'\u00e9');
  EXPECT_EQ(s[8].line, 5);
  EXPECT_EQ(s[9].key.ScanCode, SCAN_F10);
  EXPECT_EQ(s[10].key.UnicodeChar, 0x08);
  EXPECT_EQ(s[11].key.UnicodeChar, u';');
  EXPECT_TRUE(KeyScript("  \n# nothing\n;;\n").empty());
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
      {"key Down 0", "the count must be at least 1"},
      {"key Down 100000", "at most 1000"},
      {"type abc", "type needs one text in double quotes"},
      {"type \"a\tb\"", "control characters"},
      {"key Up\nkey Up; key Up; pause soon", "line 2: the pause must be a whole number"},
  };
  for (const auto& c : cases) {
    try {
      KeyScript script(c.script);
      ADD_FAILURE() << "accepted: " << c.script;
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(c.expected), std::string::npos)
          << "script: " << c.script << "\nmessage: " << e.what();
      EXPECT_EQ(std::string(e.what()).rfind("key script line ", 0), 0u) << e.what();
    }
  }
}

TEST(KeyScriptTest, WaitsHoldKeysBackOnTheGivenClockUntilTheyTimeOut) {
  KeyScript script("key a; wait 10 \"Ready\"; key b; wait 5 \"Never\"");
  std::string screen;
  auto on_screen = [&screen](std::string_view text) { return screen.find(text) != std::string::npos; };
  EFI_INPUT_KEY key{};
  using P = KeyScript::Progress;

  ASSERT_EQ(script.advance(0, on_screen, &key), P::Key);
  EXPECT_EQ(key.UnicodeChar, u'a');
  // The wait's time counts from when the script reaches it.
  EXPECT_EQ(script.advance(1000 * kMs, on_screen, &key), P::Waiting);
  EXPECT_EQ(script.advance(10999 * kMs, on_screen, &key), P::Waiting);
  screen = "... Ready ...";
  ASSERT_EQ(script.advance(10999 * kMs, on_screen, &key), P::Key);
  EXPECT_EQ(key.UnicodeChar, u'b');

  EXPECT_EQ(script.advance(30000 * kMs, on_screen, &key), P::Waiting);
  EXPECT_EQ(script.advance(35000 * kMs, on_screen, &key), P::TimedOut);
  EXPECT_EQ(script.current()->text, "Never");
  script.stop();
  EXPECT_TRUE(script.finished());
  EXPECT_EQ(script.advance(40000 * kMs, on_screen, &key), P::Finished);
}

// ---- Keys through the protocol ------------------------------------------------------

class KeyboardTest : public ::testing::Test {
 protected:
  void start(const std::string& script, uint64_t idle_limit_ns = 60ull * 1000 * kMs) {
    directory_ = std::filesystem::temp_directory_path() / ("tarvik-keyboard-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory_);
    hostfw::Options options;
    options.virtual_clock = true;
    options.key_script = script;
    options.idle_limit_ns = idle_limit_ns;
    machine_ = std::make_unique<hostfw::Machine>(hostfw::default_profile(directory_.string()), options);
    st_ = machine_->system_table();
  }
  ~KeyboardTest() override {
    machine_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  EFI_STATUS read(Key* out) {
    EFI_INPUT_KEY key{};
    const EFI_STATUS status = st_->ConIn->ReadKeyStroke(st_->ConIn, &key);
    *out = {key.ScanCode, key.UnicodeChar};
    return status;
  }
  void print(std::u16string text) { st_->ConOut->OutputString(st_->ConOut, text.data()); }
  void stall_ms(uint64_t ms) { st_->BootServices->Stall(ms * 1000); }

  std::filesystem::path directory_;
  std::unique_ptr<hostfw::Machine> machine_;
  EFI_SYSTEM_TABLE* st_ = nullptr;
};

TEST_F(KeyboardTest, ScriptedKeysAreHandedOverOneAtATimeAfterTheScreenAndTheClock) {
  start("key Down 2; wait \"Main Screen\"; key Enter; pause 100; key y");
  hostfw::Keyboard& keyboard = machine_->keyboard();
  keyboard.poll();
  keyboard.poll();
  EXPECT_EQ(keyboard.queued(), 1u) << "the next key waits until this one is read";
  Key key{};
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(read(&key), EFI_SUCCESS);
    EXPECT_EQ(key, scan(SCAN_DOWN));
  }
  EXPECT_EQ(read(&key), EFI_NOT_READY);
  stall_ms(1000);
  EXPECT_EQ(read(&key), EFI_NOT_READY);
  print(u"Tarvik Diagnostic - Main Screen");
  ASSERT_EQ(read(&key), EFI_SUCCESS);
  EXPECT_EQ(key, chr(0x0D));

  EXPECT_EQ(read(&key), EFI_NOT_READY);  // the pause starts once Enter was read
  stall_ms(99);
  EXPECT_EQ(read(&key), EFI_NOT_READY);
  EXPECT_TRUE(keyboard.can_provide_more());
  stall_ms(1);
  ASSERT_EQ(read(&key), EFI_SUCCESS);
  EXPECT_EQ(key, chr(u'y'));
  EXPECT_EQ(read(&key), EFI_NOT_READY);
  EXPECT_FALSE(keyboard.can_provide_more());
}

TEST_F(KeyboardTest, WaitForKeyIsSignalledWhileAKeyIsQueued) {
  start("");
  EFI_EVENT wait_for_key = st_->ConIn->WaitForKey;
  EXPECT_EQ(st_->BootServices->CheckEvent(wait_for_key), EFI_NOT_READY);

  machine_->keyboard().push(EFI_INPUT_KEY{SCAN_F3, 0});
  machine_->keyboard().push(EFI_INPUT_KEY{SCAN_NULL, u'n'});
  UINTN index = 99;
  ASSERT_EQ(st_->BootServices->WaitForEvent(1, &wait_for_key, &index), EFI_SUCCESS);
  EXPECT_EQ(index, 0u);
  Key key{};
  ASSERT_EQ(read(&key), EFI_SUCCESS);
  EXPECT_EQ(key, scan(SCAN_F3));

  ASSERT_EQ(st_->ConIn->Reset(st_->ConIn, FALSE), EFI_SUCCESS);  // drops the 'n'
  EXPECT_EQ(read(&key), EFI_NOT_READY);
  EXPECT_EQ(st_->BootServices->CheckEvent(wait_for_key), EFI_NOT_READY);
}

// An application that shows a text and then reads keys for ever.
int g_keys_read = 0;
EFIAPI EFI_STATUS ReadKeysForever(EFI_HANDLE, EFI_SYSTEM_TABLE* st) {
  st->ConOut->OutputString(st->ConOut, const_cast<CHAR16*>(u"Hello from the application"));
  for (;;) {
    UINTN index;
    st->BootServices->WaitForEvent(1, &st->ConIn->WaitForKey, &index);
    EFI_INPUT_KEY key;
    if (st->ConIn->ReadKeyStroke(st->ConIn, &key) == EFI_SUCCESS) ++g_keys_read;
  }
}

TEST_F(KeyboardTest, AWaitThatTimesOutStopsTheRunAsStuck) {
  start("key a\nwait 5 \"Goodbye\"\nkey b");
  g_keys_read = 0;
  const hostfw::RunResult result = machine_->run(ReadKeysForever);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Stuck);
  EXPECT_EQ(g_keys_read, 1);
  EXPECT_NE(result.reason.find("line 2"), std::string::npos) << result.reason;
  EXPECT_NE(result.reason.find("Hello from the application"), std::string::npos) << "the screen is part of it";
  const uint64_t now = machine_->clock().now_ns();
  EXPECT_TRUE(now >= 5000 * kMs && now < 6000 * kMs) << now;
}

TEST_F(KeyboardTest, WaitingAfterTheScriptEndedStopsTheRun) {
  start("key a; key b", 2000 * kMs);
  g_keys_read = 0;
  const hostfw::RunResult result = machine_->run(ReadKeysForever);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Stuck);
  EXPECT_EQ(g_keys_read, 2);
  EXPECT_GE(machine_->clock().now_ns(), 2000 * kMs);
}

}  // namespace
