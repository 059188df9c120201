// tarvik --decode: what a result code says, for a support desk.
#pragma once

#include <optional>
#include <ostream>
#include <string>

namespace hostfw {

// Prints the decoded Code (as text, or one JSON object) to out and returns
// 0, or says on err why Code is no result code and returns 2. Serial, when
// given, is checked against the characters of it the code holds.
int decode_command(const std::string& code, const std::optional<std::string>& serial, bool json, std::ostream& out,
                   std::ostream& err);

}  // namespace hostfw
