// The machine-profile reader: an INI-like text, every refusal naming the
// file, the line and the reason. The format is described in
// docs/machine-profile.md.
#include "hostfw/profile.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "hostfw/text_case.h"

namespace hostfw {
namespace {

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

// One section of the file while it is read: its keys with their lines.
struct Section {
  std::string name;
  int line = 0;
  std::map<std::string, std::pair<std::string, int>> values;
};

class Reader {
 public:
  Reader(const std::string& source, const std::string& base) : source_(source), base_(base) {}

  [[noreturn]] void fail(int line, const std::string& reason) const { throw ProfileError(source_, line, reason); }

  uint64_t number(const Section& s, const std::string& key, uint64_t min, uint64_t max) const {
    const auto& [text, line] = s.values.at(key);
    uint64_t value = 0;
    if (text.empty() || text.size() > 19 || !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; }))
      fail(line, key + " must be a whole number, not \"" + text + "\"");
    value = std::stoull(text);
    if (value < min || value > max)
      fail(line, key + " must lie between " + std::to_string(min) + " and " + std::to_string(max));
    return value;
  }

  bool flag(const Section& s, const std::string& key) const {
    const auto& [text, line] = s.values.at(key);
    const std::string v = ascii_lower(text);
    if (v == "yes" || v == "true" || v == "1") return true;
    if (v == "no" || v == "false" || v == "0") return false;
    fail(line, key + " must be yes or no, not \"" + text + "\"");
  }

  // Applies each known key's handler; unknown keys are refused, required ones demanded.
  void read(const Section& s, const std::map<std::string, std::function<void(const std::string&)>>& handlers,
            const std::set<std::string>& required) const {
    for (const auto& [key, value] : s.values) {
      auto it = handlers.find(key);
      if (it == handlers.end()) fail(value.second, "unknown key \"" + key + "\" in [" + s.name + "]");
      it->second(value.first);
    }
    for (const std::string& key : required)
      if (s.values.count(key) == 0) fail(s.line, "[" + s.name + "] needs \"" + key + "\"");
  }

  const std::string& source() const { return source_; }
  const std::string& base() const { return base_; }

 private:
  std::string source_;
  std::string base_;
};

ConsoleModeSize parse_mode(const Reader& r, const std::string& text, int line) {
  const size_t x = ascii_lower(text).find('x');
  ConsoleModeSize mode;
  try {
    if (x == std::string::npos) throw std::invalid_argument("no x");
    size_t used = 0;
    mode.columns = std::stoi(text.substr(0, x), &used);
    if (used != x) throw std::invalid_argument("junk");
    const std::string rows = text.substr(x + 1);
    mode.rows = std::stoi(rows, &used);
    if (used != rows.size()) throw std::invalid_argument("junk");
  } catch (const std::exception&) {
    r.fail(line, "a console mode is written COLUMNSxROWS, not \"" + text + "\"");
  }
  if (mode.columns < 40 || mode.columns > 250 || mode.rows < 20 || mode.rows > 100)
    r.fail(line, "console mode " + text + " is outside 40x20 .. 250x100");
  return mode;
}

WallClockStart parse_time(const Reader& r, const std::string& text, int line) {
  WallClockStart t;
  char dash1, dash2, colon1, colon2;
  std::istringstream in(text);
  in >> t.year >> dash1 >> t.month >> dash2 >> t.day >> t.hour >> colon1 >> t.minute >> colon2 >> t.second;
  if (!in || dash1 != '-' || dash2 != '-' || colon1 != ':' || colon2 != ':' || t.year < 2000 || t.year > 2099 ||
      t.month < 1 || t.month > 12 || t.day < 1 || t.day > 31 || t.hour > 23 || t.minute > 59 || t.second > 59)
    r.fail(line, "clock_start is written YYYY-MM-DD HH:MM:SS, not \"" + text + "\"");
  return t;
}

void parse_uuid(const Reader& r, const std::string& text, int line, uint8_t out[16]) {
  std::string hex;
  for (char c : text)
    if (c != '-') hex.push_back(c);
  if (hex.size() != 32 || !std::all_of(hex.begin(), hex.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }))
    r.fail(line, "uuid must be 32 hexadecimal digits, not \"" + text + "\"");
  for (int i = 0; i < 16; ++i) out[i] = static_cast<uint8_t>(std::stoi(hex.substr(i * 2, 2), nullptr, 16));
}

uint8_t memory_type_code(const Reader& r, const std::string& text, int line) {
  static const std::map<std::string, uint8_t> codes = {{"ddr", 0x12},   {"ddr2", 0x13},   {"ddr3", 0x18},
                                                       {"ddr4", 0x1A},  {"lpddr3", 0x1D}, {"lpddr4", 0x1E},
                                                       {"ddr5", 0x22},  {"lpddr5", 0x23}, {"other", 0x01}};
  auto it = codes.find(ascii_lower(text));
  if (it == codes.end()) r.fail(line, "unknown memory type \"" + text + "\"");
  return it->second;
}

uint8_t form_factor_code(const Reader& r, const std::string& text, int line) {
  static const std::map<std::string, uint8_t> codes = {{"dimm", 0x09}, {"sodimm", 0x0D}, {"other", 0x01}};
  auto it = codes.find(ascii_lower(text));
  if (it == codes.end()) r.fail(line, "unknown form factor \"" + text + "\"");
  return it->second;
}

std::vector<BadSectorRange> parse_bad_sectors(const Reader& r, const std::string& text, int line) {
  std::vector<BadSectorRange> out;
  for (const std::string& item : split_list(text)) {
    BadSectorRange range;
    const size_t dash = item.find('-');
    const std::string first = trim(item.substr(0, dash));
    const std::string last = dash == std::string::npos ? first : trim(item.substr(dash + 1));
    // Digits only: stoull alone would take "1000x" as 1000 and wrap "-3" around.
    auto lba = [](const std::string& t) {
      return !t.empty() && t.size() <= 19 &&
             std::all_of(t.begin(), t.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    };
    if (!lba(first) || !lba(last))
      r.fail(line, "bad_sectors lists LBAs or ranges such as 1000, 2000-2010; \"" + item + "\" is neither");
    range.first = std::stoull(first);
    range.last = std::stoull(last);
    if (range.last < range.first) r.fail(line, "the range " + item + " ends before it starts");
    out.push_back(range);
  }
  return out;
}

Profile build(const Reader& r, const std::vector<Section>& sections) {
  Profile p;
  p.source = r.source();
  std::set<std::string> seen;
  for (const Section& s : sections) {
    auto text = [&](std::string& field) { return [&field](const std::string& v) { field = v; }; };
    const bool single = s.name == "machine" || s.name == "bios" || s.name == "system" || s.name == "language";
    if (single && !seen.insert(s.name).second) r.fail(s.line, "[" + s.name + "] appears twice");
    if (s.name == "machine") {
      r.read(s,
             {{"name", text(p.name)},
              {"memory_mib", [&](const std::string&) { p.memory_mib = r.number(s, "memory_mib", 32, 65536); }},
              {"console_modes",
               [&](const std::string& v) {
                 const int line = s.values.at("console_modes").second;
                 for (const std::string& m : split_list(v)) p.console_modes.push_back(parse_mode(r, m, line));
                 if (p.console_modes.empty() || p.console_modes[0].columns != 80 || p.console_modes[0].rows != 25)
                   r.fail(line, "the first console mode must be 80x25, as on every firmware");
               }},
              {"clock_start",
               [&](const std::string& v) { p.clock_start = parse_time(r, v, s.values.at("clock_start").second); }},
              {"firmware_vendor", text(p.firmware_vendor)}},
             {"name", "memory_mib"});
    } else if (s.name == "bios") {
      r.read(s, {{"vendor", text(p.bios.vendor)}, {"version", text(p.bios.version)},
                 {"release_date", text(p.bios.release_date)}},
             {"vendor", "version"});
    } else if (s.name == "system") {
      r.read(s,
             {{"manufacturer", text(p.system.manufacturer)},
              {"product", text(p.system.product)},
              {"version", text(p.system.version)},
              {"serial", text(p.system.serial)},
              {"sku", text(p.system.sku)},
              {"family", text(p.system.family)},
              {"uuid", [&](const std::string& v) { parse_uuid(r, v, s.values.at("uuid").second, p.system.uuid); }}},
             {"manufacturer", "product", "serial"});
    } else if (s.name == "processor") {
      ProcessorInfo cpu;
      r.read(s,
             {{"socket", text(cpu.socket)},
              {"manufacturer", text(cpu.manufacturer)},
              {"version", text(cpu.version)},
              {"serial", text(cpu.serial)},
              {"part_number", text(cpu.part_number)},
              {"max_speed_mhz",
               [&](const std::string&) { cpu.max_speed_mhz = r.number(s, "max_speed_mhz", 0, 65535); }},
              {"current_speed_mhz",
               [&](const std::string&) { cpu.current_speed_mhz = r.number(s, "current_speed_mhz", 0, 65535); }},
              {"external_clock_mhz",
               [&](const std::string&) { cpu.external_clock_mhz = r.number(s, "external_clock_mhz", 0, 65535); }},
              {"cores", [&](const std::string&) { cpu.core_count = r.number(s, "cores", 1, 255); }},
              {"threads", [&](const std::string&) { cpu.thread_count = r.number(s, "threads", 1, 255); }}},
             {"manufacturer", "version"});
      p.processors.push_back(cpu);
    } else if (s.name == "language") {
      std::string current;
      r.read(s, {{"installable", [&](const std::string& v) { p.language.installable = split_list(v); }},
                 {"current", text(current)}},
             {"installable", "current"});
      if (p.language.installable.size() > 255)
        r.fail(s.values.at("installable").second, "at most 255 installable languages");
      auto it = std::find(p.language.installable.begin(), p.language.installable.end(), current);
      if (it == p.language.installable.end())
        r.fail(s.values.at("current").second, "the current language must be one of the installable ones");
      p.language.current = static_cast<int>(it - p.language.installable.begin());
    } else if (s.name == "memory_module") {
      MemoryModuleInfo m;
      r.read(s,
             {{"locator", text(m.locator)},
              {"bank", text(m.bank)},
              {"manufacturer", text(m.manufacturer)},
              {"serial", text(m.serial)},
              {"part_number", text(m.part_number)},
              {"size_mib", [&](const std::string&) { m.size_mib = r.number(s, "size_mib", 0, 16u * 1024 * 1024); }},
              {"speed_mts", [&](const std::string&) { m.speed_mts = r.number(s, "speed_mts", 0, 65534); }},
              {"type",
               [&](const std::string& v) { m.memory_type = memory_type_code(r, v, s.values.at("type").second); }},
              {"form_factor",
               [&](const std::string& v) {
                 m.form_factor = form_factor_code(r, v, s.values.at("form_factor").second);
               }}},
             {"locator", "size_mib"});
      p.memory_modules.push_back(m);
    } else if (s.name == "drive") {
      DriveInfo d;
      std::string smart = "ok";
      r.read(s,
             {{"port", [&](const std::string&) { d.port = r.number(s, "port", 0, 31); }},
              {"model", text(d.model)},
              {"serial", text(d.serial)},
              {"firmware", text(d.firmware)},
              {"sectors", [&](const std::string&) { d.sectors = r.number(s, "sectors", 2048, 1ull << 48); }},
              {"size_gib",
               [&](const std::string&) { d.sectors = r.number(s, "size_gib", 1, 1u << 20) * 2097152ull; }},
              {"rotation_rpm", [&](const std::string&) { d.rotation_rpm = r.number(s, "rotation_rpm", 0, 65535); }},
              {"smart", text(smart)},
              {"temperature_c",
               [&](const std::string&) { d.temperature_c = static_cast<uint8_t>(r.number(s, "temperature_c", 0, 90)); }},
              {"power_on_hours",
               [&](const std::string&) { d.power_on_hours = static_cast<uint32_t>(r.number(s, "power_on_hours", 0, 60000)); }},
              {"smart_enabled", [&](const std::string&) { d.smart_enabled = r.flag(s, "smart_enabled"); }},
              {"bad_sectors",
               [&](const std::string& v) { d.bad_sectors = parse_bad_sectors(r, v, s.values.at("bad_sectors").second); }}},
             {"port", "model", "serial"});
      if (s.values.count("sectors") && s.values.count("size_gib")) r.fail(s.line, "give sectors or size_gib, not both");
      if (d.sectors == 0) r.fail(s.line, "[drive] needs \"sectors\" or \"size_gib\"");
      if (smart != "ok" && smart != "failing") r.fail(s.values.at("smart").second, "smart must be ok or failing");
      d.smart_failing = smart == "failing";
      if (d.serial.size() > 20) r.fail(s.values.at("serial").second, "a drive serial number has at most 20 characters");
      if (d.model.size() > 40) r.fail(s.values.at("model").second, "a drive model has at most 40 characters");
      for (const DriveInfo& other : p.drives)
        if (other.port == d.port) r.fail(s.values.at("port").second, "two drives on port " + std::to_string(d.port));
      for (const BadSectorRange& b : d.bad_sectors)
        if (b.last >= d.sectors) r.fail(s.values.at("bad_sectors").second, "a bad sector lies beyond the drive's end");
      p.drives.push_back(d);
    } else if (s.name == "volume") {
      VolumeInfo v;
      r.read(s,
             {{"label", text(v.label)},
              {"directory", text(v.directory)},
              {"size_mib", [&](const std::string&) { v.size_mib = r.number(s, "size_mib", 1, 1u << 24); }},
              {"read_only", [&](const std::string&) { v.read_only = r.flag(s, "read_only"); }},
              {"fail_writes", [&](const std::string&) { v.fail_writes = r.flag(s, "fail_writes"); }}},
             {"label", "directory"});
      std::filesystem::path dir(v.directory);
      if (dir.is_relative()) dir = std::filesystem::path(r.base()) / dir;
      v.directory = dir.lexically_normal().string();
      std::error_code ec;
      if (std::filesystem::exists(dir, ec) && !std::filesystem::is_directory(dir, ec))
        r.fail(s.values.at("directory").second, v.directory + " exists and is not a directory");
      p.volumes.push_back(v);
    } else {
      r.fail(s.line, "unknown section [" + s.name + "]");
    }
  }
  if (seen.count("machine") == 0) r.fail(1, "the profile has no [machine] section");
  if (p.console_modes.empty()) p.console_modes = {{80, 25}, {80, 50}, {100, 31}};
  return p;
}

}  // namespace

Profile parse_profile(const std::string& text, const std::string& source, const std::string& base_directory) {
  Reader reader(source, base_directory);
  std::vector<Section> sections;
  std::istringstream in(text);
  std::string raw;
  int line = 0;
  while (std::getline(in, raw)) {
    ++line;
    if (line == 1 && raw.compare(0, 3, "\xEF\xBB\xBF") == 0) raw.erase(0, 3);  // a UTF-8 byte-order mark
    if (!raw.empty() && raw.back() == '\r') raw.pop_back();
    for (unsigned char c : raw) {
      if (c < 0x20 && c != '\t') {
        char code[8];
        std::snprintf(code, sizeof code, "0x%02X", c);
        reader.fail(line, std::string("a control character (") + code + ") in the line");
      }
    }
    std::string content = raw;
    // A comment starts a line, or follows a space.
    for (size_t i = 0; i < content.size(); ++i) {
      if ((content[i] == '#' || content[i] == ';') && (i == 0 || std::isspace(static_cast<unsigned char>(content[i - 1])))) {
        content.resize(i);
        break;
      }
    }
    content = trim(content);
    if (content.empty()) continue;
    if (content.front() == '[') {
      if (content.back() != ']') reader.fail(line, "a section header ends with ']'");
      sections.push_back(Section{ascii_lower(trim(content.substr(1, content.size() - 2))), line, {}});
      continue;
    }
    const size_t eq = content.find('=');
    if (eq == std::string::npos) reader.fail(line, "expected key = value");
    if (sections.empty()) reader.fail(line, "a key before any [section]");
    const std::string key = ascii_lower(trim(content.substr(0, eq)));
    if (key.empty()) reader.fail(line, "a value without a key");
    if (sections.back().values.count(key)) reader.fail(line, "\"" + key + "\" is given twice in this section");
    sections.back().values[key] = {trim(content.substr(eq + 1)), line};
  }
  return build(reader, sections);
}

Profile load_profile_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ProfileError(path, 0, "cannot be read");
  std::ostringstream text;
  text << in.rdbuf();
  const std::filesystem::path folder = std::filesystem::absolute(path).parent_path();
  return parse_profile(text.str(), path, folder.string());
}

Profile default_profile(const std::string& base_directory) {
  return parse_profile(default_profile_text(), "<embedded default machine>",
                       std::filesystem::absolute(base_directory).string());
}

}  // namespace hostfw
