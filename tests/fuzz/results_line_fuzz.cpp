// The results line on log lines, machine strings and names of any content:
// the input's lines (bytes as characters; 0xFF and two bytes give any
// character, surrogates included) are the machine's five SMBIOS strings, the
// test's name, then the log. Whatever they hold, the line must fit the
// capacity reserved for it with every object closed, end in its one line
// feed, and be UTF-8 without a raw control byte (escaping).
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "log/log_protocol.h"
#include "log/results_line.h"

namespace {

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "results_line: %s\n", what);
  std::abort();
}

std::vector<std::u16string> Lines(const uint8_t* data, size_t size) {
  std::vector<std::u16string> lines(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      lines.emplace_back();
    } else if (data[i] == 0xFF && i + 2 < size) {
      lines.back() += static_cast<char16_t>(data[i + 1] << 8 | data[i + 2]);
      i += 2;
    } else if (data[i] != 0) {
      lines.back() += static_cast<char16_t>(data[i]);
    }
  }
  return lines;
}

// Valid UTF-8, no control byte but the final line feed.
void CheckBytes(const std::vector<uint8_t>& out, size_t size) {
  if (size == 0 || out[size - 1] != '\n') Fail("no line feed at the end");
  for (size_t i = 0; i + 1 < size;) {
    const uint8_t b = out[i];
    if (b < 0x20 || b == 0x7F) Fail("a raw control byte");
    const size_t extra = b < 0x80 ? 0 : (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : 9;
    if (extra == 9 || i + extra >= size) Fail("not UTF-8");
    for (size_t k = 1; k <= extra; ++k)
      if ((out[i + k] & 0xC0) != 0x80) Fail("not UTF-8");
    if (extra == 2) {
      const unsigned code = (b & 0x0F) << 12 | (out[i + 1] & 0x3F) << 6 | (out[i + 2] & 0x3F);
      if (code >= 0xD800 && code <= 0xDFFF) Fail("a surrogate in UTF-8");
    }
    i += extra + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const bool tool = data[0] & 1;
  std::vector<std::u16string> texts = Lines(data + 1, size - 1);
  texts.resize(std::max<size_t>(texts.size(), 6));
  // The log's lines as the line store keeps them: fixed width, cut, terminated.
  const size_t count = texts.size() - 6;
  std::vector<CHAR16> block(std::max<size_t>(count, 1) * tarvik::LogLineChars, 0);
  for (size_t l = 0; l < count; ++l)
    for (size_t c = 0; c < texts[6 + l].size() && c + 1 < tarvik::LogLineChars; ++c)
      block[l * tarvik::LogLineChars + c] = texts[6 + l][c];

  const EFI_TIME start = {2026, 1, 15, 8, 0, 0, 0, 0, 0, 0, 0}, end = {2026, 1, 15, 9, 1, 2, 0, 0, 0, 0, 0};
  tarvik::ResultsRun run;
  run.Tool = tool;
  run.Started = &start;
  run.Saved = &end;
  run.Ended = &end;
  run.Machine = {texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), texts[3].c_str(), texts[4].c_str()};
  run.TestName = texts[5].c_str();
  run.Lines = block.data();
  run.LineCount = count;
  const size_t capacity = tarvik::ResultsLineCapacity(run);
  std::vector<uint8_t> out(capacity);
  tarvik::JsonWriter json(out.data(), capacity);
  tarvik::WriteResultsLine(json, run);
  if (!json.Complete()) Fail("the line did not fit its capacity");
  CheckBytes(out, json.Size());
  return 0;
}
