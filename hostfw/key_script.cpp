#include "hostfw/key_script.h"

#include "hostfw/text_case.h"

#include <cctype>
#include <charconv>
#include <stdexcept>

namespace hostfw {
namespace {

constexpr uint64_t kNsPerMs = 1000ull * 1000;
constexpr uint64_t kNsPerSecond = 1000 * kNsPerMs;
constexpr uint64_t kMaxCount = 1000;
constexpr uint64_t kMaxWaitSeconds = 24 * 3600;
constexpr uint64_t kMaxPauseMs = kMaxWaitSeconds * 1000;

struct NamedKey {
  const char* name;
  UINT16 scan;
  CHAR16 ch;
};

constexpr NamedKey kNamedKeys[] = {
    {"up", SCAN_UP, 0},
    {"down", SCAN_DOWN, 0},
    {"left", SCAN_LEFT, 0},
    {"right", SCAN_RIGHT, 0},
    {"home", SCAN_HOME, 0},
    {"end", SCAN_END, 0},
    {"pgup", SCAN_PAGE_UP, 0},
    {"pageup", SCAN_PAGE_UP, 0},
    {"pgdn", SCAN_PAGE_DOWN, 0},
    {"pagedown", SCAN_PAGE_DOWN, 0},
    {"insert", SCAN_INSERT, 0},
    {"delete", SCAN_DELETE, 0},
    {"f1", SCAN_F1, 0},
    {"f2", SCAN_F2, 0},
    {"f3", SCAN_F3, 0},
    {"f4", SCAN_F4, 0},
    {"f5", SCAN_F5, 0},
    {"f6", SCAN_F6, 0},
    {"f7", SCAN_F7, 0},
    {"f8", SCAN_F8, 0},
    {"f9", SCAN_F9, 0},
    {"f10", SCAN_F10, 0},
    {"esc", SCAN_ESC, 0},
    {"escape", SCAN_ESC, 0},
    {"enter", SCAN_NULL, 0x000D},
    {"tab", SCAN_NULL, 0x0009},
    {"space", SCAN_NULL, 0x0020},
    {"backspace", SCAN_NULL, 0x0008},
};

struct Token {
  std::string text;
  bool quoted = false;
};

class StepError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};


// Code points of UTF-8 text; StepError for text that is not UTF-8.
std::u32string decode_utf8(std::string_view s) {
  std::u32string out;
  for (size_t i = 0; i < s.size();) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    int length = b < 0x80 ? 1 : (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xE ? 3 : (b >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > s.size()) throw StepError("the text is not valid UTF-8");
    char32_t c = length == 1 ? b : length == 2 ? (b & 0x1F) : length == 3 ? (b & 0x0F) : (b & 0x07);
    for (int k = 1; k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(s[i + k]);
      if ((next & 0xC0) != 0x80) throw StepError("the text is not valid UTF-8");
      c = (c << 6) | (next & 0x3F);
    }
    out.push_back(c);
    i += length;
  }
  return out;
}

EFI_INPUT_KEY character_key(char32_t c) {
  if (c < 0x20 || c == 0x7F) throw StepError("control characters cannot be typed; use key with a key name");
  if (c > 0xFFFF || (c >= 0xD800 && c <= 0xDFFF))
    throw StepError("characters outside the Basic Multilingual Plane cannot be typed");
  return EFI_INPUT_KEY{SCAN_NULL, static_cast<CHAR16>(c)};
}

uint64_t number(const Token& token, const char* what, uint64_t max) {
  uint64_t value = 0;
  const char* end = token.text.data() + token.text.size();
  const auto [ptr, ec] = std::from_chars(token.text.data(), end, value);
  if (token.quoted || token.text.empty() || ec != std::errc() || ptr != end)
    throw StepError(std::string(what) + " must be a whole number, not \"" + token.text + "\"");
  if (value > max) throw StepError(std::string(what) + " must be at most " + std::to_string(max));
  return value;
}

std::vector<Token> tokenize(std::string_view step) {
  std::vector<Token> tokens;
  size_t i = 0;
  while (i < step.size()) {
    if (std::isspace(static_cast<unsigned char>(step[i]))) {
      ++i;
      continue;
    }
    Token token;
    if (step[i] == '"') {
      token.quoted = true;
      ++i;
      bool closed = false;
      while (i < step.size()) {
        const char c = step[i++];
        if (c == '"') {
          closed = true;
          break;
        }
        if (c == '\\' && i < step.size() && (step[i] == '"' || step[i] == '\\')) {
          token.text.push_back(step[i++]);
        } else {
          token.text.push_back(c);
        }
      }
      if (!closed) throw StepError("a text is missing its closing quote");
    } else {
      while (i < step.size() && !std::isspace(static_cast<unsigned char>(step[i]))) {
        if (step[i] == '"') throw StepError("a quote inside a word; put a blank before the text");
        token.text.push_back(step[i++]);
      }
    }
    tokens.push_back(std::move(token));
  }
  return tokens;
}

// One step as written into the steps it stands for (a key with a count
// stands for that many keys, a typed text for one key per character).
void parse_step(const std::vector<Token>& tokens, KeyStep base, std::vector<KeyStep>& out) {
  const std::string command = tokens[0].quoted ? std::string() : ascii_lower(tokens[0].text);
  const size_t args = tokens.size() - 1;

  if (command == "wait") {
    if (args == 0 || args > 2 || !tokens.back().quoted)
      throw StepError("wait needs the text to wait for in double quotes, after an optional timeout in seconds");
    base.kind = KeyStep::Kind::Wait;
    base.duration_ns = KeyScript::kDefaultWaitNs;
    if (args == 2) {
      const uint64_t seconds = number(tokens[1], "the timeout", kMaxWaitSeconds);
      if (seconds == 0) throw StepError("the timeout must be at least 1 second");
      base.duration_ns = seconds * kNsPerSecond;
    }
    base.text = tokens.back().text;
    if (base.text.empty()) throw StepError("wait needs a text that is not empty");
    decode_utf8(base.text);
    out.push_back(std::move(base));
    return;
  }

  if (command == "key") {
    if (args == 0 || args > 2) throw StepError("key needs a key name and, optionally, a count");
    const Token& name = tokens[1];
    base.kind = KeyStep::Kind::Key;
    bool found = false;
    if (!name.quoted) {
      const std::string wanted = ascii_lower(name.text);
      for (const NamedKey& k : kNamedKeys) {
        if (wanted == k.name) {
          base.key = EFI_INPUT_KEY{k.scan, k.ch};
          found = true;
          break;
        }
      }
    }
    if (!found) {
      const std::u32string chars = decode_utf8(name.text);
      if (chars.size() != 1) throw StepError("unknown key \"" + name.text + "\"");
      base.key = character_key(chars[0]);
    }
    const uint64_t count = args == 2 ? number(tokens[2], "the count", kMaxCount) : 1;
    if (count == 0) throw StepError("the count must be at least 1");
    for (uint64_t i = 0; i < count; ++i) out.push_back(base);
    return;
  }

  if (command == "type") {
    if (args != 1 || !tokens[1].quoted) throw StepError("type needs one text in double quotes");
    const std::u32string chars = decode_utf8(tokens[1].text);
    if (chars.empty()) throw StepError("type needs a text that is not empty");
    base.kind = KeyStep::Kind::Key;
    for (char32_t c : chars) {
      base.key = character_key(c);
      out.push_back(base);
    }
    return;
  }

  if (command == "snap") {
    if (args != 1 || !tokens[1].quoted || tokens[1].text.empty())
      throw StepError("snap needs a name in double quotes");
    base.kind = KeyStep::Kind::Snap;
    base.text = tokens[1].text;
    out.push_back(std::move(base));
    return;
  }

  if (command == "pause") {
    if (args != 1) throw StepError("pause needs a number of milliseconds");
    base.kind = KeyStep::Kind::Pause;
    base.duration_ns = number(tokens[1], "the pause", kMaxPauseMs) * kNsPerMs;
    out.push_back(std::move(base));
    return;
  }

  throw StepError("unknown step \"" + tokens[0].text + "\" (expected wait, key, type or pause)");
}

std::string trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return std::string(s.substr(b, e - b));
}

}  // namespace

KeyScript::KeyScript(std::string_view text) {
  int line_number = 0;
  size_t line_start = 0;
  while (line_start <= text.size()) {
    size_t line_end = text.find('\n', line_start);
    if (line_end == std::string_view::npos) line_end = text.size();
    const std::string_view line = text.substr(line_start, line_end - line_start);
    ++line_number;

    // Cut the line into steps at ';' and '#' outside texts.
    std::vector<std::string> pieces;
    std::string piece;
    bool in_text = false;
    for (size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      if (in_text) {
        piece.push_back(c);
        if (c == '\\' && i + 1 < line.size()) {
          piece.push_back(line[++i]);
        } else if (c == '"') {
          in_text = false;
        }
        continue;
      }
      if (c == '"') in_text = true;
      if (c == ';') {
        pieces.push_back(std::move(piece));
        piece.clear();
        continue;
      }
      if (c == '#' && (piece.empty() || std::isspace(static_cast<unsigned char>(piece.back())))) break;
      piece.push_back(c);
    }
    pieces.push_back(std::move(piece));

    for (const std::string& raw : pieces) {
      const std::string source = trim(raw);
      if (source.empty()) continue;
      KeyStep base;
      base.line = line_number;
      base.source = source;
      try {
        parse_step(tokenize(source), std::move(base), steps_);
      } catch (const StepError& e) {
        throw std::invalid_argument("key script line " + std::to_string(line_number) + ": " + e.what() + " (in \"" +
                                    source + "\")");
      }
    }
    line_start = line_end + 1;
  }
}

KeyScript::Progress KeyScript::advance(uint64_t now_ns, const Screen& screen, EFI_INPUT_KEY* key) {
  while (next_ < steps_.size()) {
    const KeyStep& step = steps_[next_];
    if (!step_started_) {
      step_started_ = true;
      step_started_ns_ = now_ns;
    }
    const uint64_t elapsed = now_ns - step_started_ns_;
    switch (step.kind) {
      case KeyStep::Kind::Key:
        *key = step.key;
        ++next_;
        step_started_ = false;
        return Progress::Key;
      case KeyStep::Kind::Wait:
        if (!screen.contains(step.text)) return elapsed >= step.duration_ns ? Progress::TimedOut : Progress::Waiting;
        break;
      case KeyStep::Kind::Pause:
        if (elapsed < step.duration_ns) return Progress::Waiting;
        break;
      case KeyStep::Kind::Snap:
        screen.save_snapshot(step.text);
        break;
    }
    ++next_;
    step_started_ = false;
  }
  return Progress::Finished;
}

}  // namespace hostfw
