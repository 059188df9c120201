#include "hostfw/decode_command.h"

#include <array>
#include <cctype>
#include <sstream>
#include <vector>

#include "resultcode/result_code_layout.h"

namespace hostfw {
namespace {

namespace layout = tarvik::result_code;

// The modules whose codes are known here: their names as the main screen
// lists them, and their algorithms by flag position.
struct KnownModule {
  const char* code;
  const char* name;
  std::vector<const char*> algorithms;
};
const std::array<KnownModule, 3> kKnownModules = {{
    {"ME", "Quick Memory Test", {"Advanced Integrity Test"}},
    {"HD", "Quick Storage Device Test",
     {"Smart Status", "Smart Short Selftest", "Drive Self Test", "Random Seek Test", "Funnel Seek Test",
      "Targeted Read Test", "Extended drive self-test"}},
    {"NV", "Quick NVMe Device Test",
     {"Health Status", "Short Self-Test", "Extended Self-Test", "Random Read Test", "Error Log Read Test",
      "Full Read Scan"}},
}};

struct Decoded {
  std::string code;
  std::string module;
  std::array<bool, layout::AlgorithmFlags> executed{}, failed{};
  int year_sum = 0, month_sum = 0, day_sum = 0;
};

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The digit sum a date character of the code stands for, or -1.
int date_sum(char c, const layout::Mixed& place) {
  const char16_t plain = layout::ShiftCharacter(static_cast<char16_t>(c), -place.Shift);
  if (plain < u'@' || plain > u'Z' + 6) return -1;  // digit sums of dates stay below 33
  return plain - u'@';
}

// Decodes text into d, or returns why it is no result code.
std::string decode(const std::string& text, Decoded& d) {
  d.code = upper(text);
  const std::string& c = d.code;
  if (c.size() != layout::Length)
    return "a result code has " + std::to_string(layout::Length) + " characters, this one " +
           std::to_string(c.size());
  if (c[0] != static_cast<char>(layout::Lead)) return "a result code begins with U";
  if (c[layout::DashAt] != static_cast<char>(layout::Dash)) return "a result code has a dash after its 9th character";
  for (size_t i = 0; i < 2; ++i)
    if (!std::isalnum(static_cast<unsigned char>(c[layout::ModuleAt + i])))
      return "characters 2 and 3 (the module) are letters or digits";
  d.module = c.substr(layout::ModuleAt, 2);
  for (size_t digit = 0; digit < 3; ++digit) {
    const int executed = layout::Base32Value(static_cast<char16_t>(c[layout::ExecutedAt + digit]));
    const int failed = layout::Base32Value(static_cast<char16_t>(c[layout::FailedAt + digit]));
    if (executed < 0 || failed < 0) return "characters 4 to 9 (the algorithms) are digits 0-9 or letters A-V";
    for (size_t bit = 0; bit < 5; ++bit) {
      const size_t flag = layout::FirstFlagOfDigit(digit) + bit;
      d.executed[flag] = (executed >> bit) & 1;
      d.failed[flag] = (failed >> bit) & 1;
      if (d.failed[flag] && !d.executed[flag])
        return "the code names algorithm " + std::to_string(flag + 1) + " failed but not run";
    }
  }
  d.year_sum = date_sum(c[layout::YearPlace.At], layout::YearPlace);
  d.month_sum = date_sum(c[layout::MonthPlace.At], layout::MonthPlace);
  d.day_sum = date_sum(c[layout::DayPlace.At], layout::DayPlace);
  if (d.year_sum < 0 || d.month_sum < 0 || d.day_sum < 0) return "characters 12, 14 and 16 (the date) are letters";
  return {};
}

int digit_sum(int value) {
  int sum = 0;
  for (; value != 0; value /= 10) sum += value % 10;
  return sum;
}

std::vector<int> matching(int from, int to, int sum) {
  std::vector<int> values;
  for (int v = from; v <= to; ++v)
    if (digit_sum(v) == sum) values.push_back(v);
  return values;
}

// Whether serial gives the code's serial characters.
bool serial_fits(const Decoded& d, const std::string& serial) {
  if (serial.size() < layout::SerialCharactersNeeded) return false;
  for (const layout::Mixed& place : layout::SerialPlaces) {
    const char16_t shown =
        layout::ShiftCharacter(static_cast<char16_t>(static_cast<unsigned char>(serial[place.SerialIndex])), place.Shift);
    if (shown != static_cast<char16_t>(d.code[place.At])) return false;
  }
  return true;
}

// Characters 1, 3 and 5 of the serial number as far as the code tells them.
std::string serial_pattern(const Decoded& d) {
  std::string pattern = "?????";
  for (const layout::Mixed& place : layout::SerialPlaces)
    pattern[place.SerialIndex] =
        static_cast<char>(layout::ShiftCharacter(static_cast<char16_t>(d.code[place.At]), -place.Shift));
  return pattern;
}

const KnownModule* known(const std::string& code) {
  for (const KnownModule& m : kKnownModules)
    if (code == m.code) return &m;
  return nullptr;
}

std::string algorithm_name(const KnownModule* module, size_t position) {
  if (module != nullptr && position < module->algorithms.size()) return module->algorithms[position];
  return "algorithm " + std::to_string(position + 1);
}

std::string json_string(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      static const char* hex = "0123456789abcdef";
      out += "\\u00";
      out += hex[c >> 4];
      out += hex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

std::string json_numbers(const std::vector<int>& values) {
  std::string out = "[";
  for (size_t i = 0; i < values.size(); ++i) out += (i ? "," : "") + std::to_string(values[i]);
  return out + "]";
}

std::string listed(const std::vector<int>& values) {
  if (values.empty()) return "none";
  std::string out;
  for (size_t i = 0; i < values.size(); ++i) out += (i ? ", " : "") + std::to_string(values[i]);
  return out;
}

}  // namespace

int decode_command(const std::string& code, const std::optional<std::string>& serial, bool json, std::ostream& out,
                   std::ostream& err) {
  Decoded d;
  const std::string problem = decode(code, d);
  if (!problem.empty()) {
    err << "tarvik: " << code << " is no result code: " << problem << "\n";
    return 2;
  }
  const KnownModule* module = known(d.module);
  const std::vector<int> years = matching(2000, 2099, d.year_sum);
  const std::vector<int> months = matching(1, 12, d.month_sum);
  const std::vector<int> days = matching(1, 31, d.day_sum);
  std::vector<size_t> ran, failed;
  for (size_t flag = 0; flag < layout::AlgorithmFlags; ++flag) {
    if (d.executed[flag]) ran.push_back(flag);
    if (d.failed[flag]) failed.push_back(flag);
  }

  if (json) {
    out << "{\"code\":" << json_string(d.code) << ",\"module\":{\"code\":" << json_string(d.module)
        << ",\"name\":" << (module ? json_string(module->name) : "null") << "},\"algorithms\":[";
    for (size_t i = 0; i < ran.size(); ++i) {
      out << (i ? "," : "") << "{\"position\":" << ran[i] + 1 << ",\"name\":"
          << (module && ran[i] < module->algorithms.size() ? json_string(module->algorithms[ran[i]]) : "null")
          << ",\"failed\":" << (d.failed[ran[i]] ? "true" : "false") << "}";
    }
    out << "],\"passed\":" << (failed.empty() ? "true" : "false") << ",\"serial_characters\":"
        << json_string(serial_pattern(d)) << ",\"serial\":";
    if (serial) {
      out << "{\"given\":" << json_string(*serial) << ",\"fits\":" << (serial_fits(d, *serial) ? "true" : "false")
          << "}";
    } else {
      out << "null";
    }
    out << ",\"date\":{\"year_digit_sum\":" << d.year_sum << ",\"years\":" << json_numbers(years)
        << ",\"month_digit_sum\":" << d.month_sum << ",\"months\":" << json_numbers(months)
        << ",\"day_digit_sum\":" << d.day_sum << ",\"days\":" << json_numbers(days) << "}}\n";
    return 0;
  }

  out << "Result code " << d.code << "\n";
  out << "Module:     " << d.module << (module ? std::string(" (") + module->name + ")" : " (not known here)") << "\n";
  out << "Ran:        ";
  for (size_t i = 0; i < ran.size(); ++i) out << (i ? ", " : "") << algorithm_name(module, ran[i]);
  out << (ran.empty() ? "nothing" : "") << "\n";
  out << "Failed:     ";
  for (size_t i = 0; i < failed.size(); ++i) out << (i ? ", " : "") << algorithm_name(module, failed[i]);
  out << (failed.empty() ? "nothing (the device passed)" : "") << "\n";
  out << "Serial:     characters 1, 3 and 5 of the machine's serial number are " << serial_pattern(d);
  if (serial) out << "; " << *serial << (serial_fits(d, *serial) ? " fits the code" : " does NOT fit the code");
  out << "\n";
  out << "Date:       year " << listed(years) << "\n";
  out << "            month " << listed(months) << "\n";
  out << "            day " << listed(days) << "\n";
  if (years.empty() || months.empty() || days.empty())
    out << "No date fits the code: it was mistyped or not made by Tarvik.\n";
  return 0;
}

}  // namespace hostfw
