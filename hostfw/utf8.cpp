#include "hostfw/utf8.h"

namespace hostfw {

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

std::string utf8_from_utf16(const char16_t* text) {
  std::string out;
  for (; *text != 0; ++text) {
    char32_t c = *text;
    if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[1] - 0xDC00);
      ++text;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    append_utf8(out, c);
  }
  return out;
}

std::u16string utf16_from_utf8(const std::string& text) {
  std::u16string out;
  for (size_t i = 0; i < text.size();) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char c = byte(i);
    const size_t length = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 && c < 0xF0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 1;
    bool sequence = length > 1 && i + length <= text.size();
    for (size_t k = 1; sequence && k < length; ++k) sequence = (byte(i + k) & 0xC0) == 0x80;
    if (!sequence) {
      out.push_back(c);
      ++i;
      continue;
    }
    char32_t code = c & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) code = code << 6 | (byte(i + k) & 0x3F);
    if (code >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(code));
    }
    i += length;
  }
  return out;
}

}  // namespace hostfw
