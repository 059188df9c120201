// Case folding for the host firmware's own texts: profile keys, key-script
// words and FAT names, which compare without regard to ASCII case.
#pragma once

#include <string>
#include <string_view>

namespace hostfw {

inline std::string ascii_lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

}  // namespace hostfw
