// UTF-8 for the host side: the terminal, host file names and test output.
#pragma once

#include <string>

namespace hostfw {

// Appends one code point as UTF-8.
void append_utf8(std::string& out, char32_t c);
// A NUL-terminated UTF-16 string as UTF-8; an unpaired surrogate becomes U+FFFD.
std::string utf8_from_utf16(const char16_t* text);
// UTF-8 as UTF-16, forgiving as host file names need: a byte that starts no
// valid sequence is taken as Latin-1; characters beyond the BMP become
// surrogate pairs.
std::u16string utf16_from_utf8(const std::string& text);

}  // namespace hostfw
