#include "hostfw/profile_reader.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "hostfw/text_case.h"

namespace hostfw {
namespace {

bool all_digits(const std::string& t, bool hex = false) {
  return !t.empty() && std::all_of(t.begin(), t.end(), [hex](unsigned char c) {
           return (hex ? std::isxdigit(c) : std::isdigit(c)) != 0;
         });
}

}  // namespace

std::string trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

std::vector<std::string> split_list(const std::string& value) {
  std::vector<std::string> out;
  std::stringstream in(value);
  std::string item;
  while (std::getline(in, item, ',')) {
    item = trim(item);
    if (!item.empty()) out.push_back(item);
  }
  return out;
}

uint64_t Reader::number(const Section& s, const std::string& key, uint64_t min, uint64_t max) const {
  const auto& [text, line] = s.values.at(key);
  if (text.size() > 19 || !all_digits(text))
    fail(line, key + " must be a whole number, not \"" + text + "\"");
  const uint64_t value = std::stoull(text);
  if (value < min || value > max)
    fail(line, key + " must lie between " + std::to_string(min) + " and " + std::to_string(max));
  return value;
}

uint64_t Reader::register_value(const Section& s, const std::string& key, uint64_t max) const {
  const auto& [text, line] = s.values.at(key);
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = hex ? text.substr(2) : text;
  if (digits.size() > 15 || !all_digits(digits, hex))
    fail(line, key + " must be a number, decimal or 0x hexadecimal, not \"" + text + "\"");
  const uint64_t value = std::stoull(digits, nullptr, hex ? 16 : 10);
  if (value > max) fail(line, key + " must be at most " + std::to_string(max));
  return value;
}

bool Reader::flag(const Section& s, const std::string& key) const {
  const auto& [text, line] = s.values.at(key);
  const std::string v = ascii_lower(text);
  if (v == "yes" || v == "true" || v == "1") return true;
  if (v == "no" || v == "false" || v == "0") return false;
  fail(line, key + " must be yes or no, not \"" + text + "\"");
}

std::vector<BadSectorRange> Reader::sectors(const Section& s, const std::string& key, uint64_t sectors) const {
  const auto& [text, line] = s.values.at(key);
  std::vector<BadSectorRange> out;
  for (const std::string& item : split_list(text)) {
    BadSectorRange range;
    const size_t dash = item.find('-');
    const std::string first = trim(item.substr(0, dash));
    const std::string last = dash == std::string::npos ? first : trim(item.substr(dash + 1));
    // Digits only: stoull alone would take "1000x" as 1000 and wrap "-3" around.
    if (first.size() > 19 || last.size() > 19 || !all_digits(first) || !all_digits(last))
      fail(line, key + " lists LBAs or ranges such as 1000, 2000-2010; \"" + item + "\" is neither");
    range.first = std::stoull(first);
    range.last = std::stoull(last);
    if (range.last < range.first) fail(line, "the range " + item + " ends before it starts");
    if (range.last >= sectors) fail(line, "a sector of " + key + " lies beyond the drive's end");
    out.push_back(range);
  }
  return out;
}

void Reader::read(const Section& s, const std::map<std::string, std::function<void(const std::string&)>>& handlers,
                  const std::set<std::string>& required) const {
  for (const auto& [key, value] : s.values) {
    auto it = handlers.find(key);
    if (it == handlers.end()) fail(value.second, "unknown key \"" + key + "\" in [" + s.name + "]");
    it->second(value.first);
  }
  for (const std::string& key : required)
    if (!s.has(key)) fail(s.line, "[" + s.name + "] needs \"" + key + "\"");
}

std::string device_string(const Reader& r, const Section& s, const std::string& key, size_t limit) {
  const std::string& text = s.values.at(key).first;
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' && std::isxdigit(static_cast<unsigned char>(text[i + 2])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 3]))) {
      out.push_back(static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16)));
      i += 3;
    } else {
      out.push_back(text[i]);
    }
  }
  if (out.size() > limit)
    r.fail(s.line_of(key), "a drive " + key + " has at most " + std::to_string(limit) + " characters");
  return out;
}

}  // namespace hostfw
