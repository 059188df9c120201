// The machine-profile reader: an INI-like text, every refusal naming the
// file, the line and the reason. The format is described in
// docs/machine-profile.md.
#include "hostfw/profile.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "hostfw/profile_reader.h"
#include "hostfw/text_case.h"

namespace hostfw {
namespace {

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

// "100x31:80, ...": in mode 100x31 the console refuses columns from 80 on.
void apply_column_limits(const Reader& r, const std::string& value, int line, std::vector<ConsoleModeSize>& modes) {
  for (const std::string& item : split_list(value)) {
    const size_t colon = item.find(':');
    const std::string column = colon == std::string::npos ? "" : trim(item.substr(colon + 1));
    if (column.empty() || column.size() > 3 ||
        !std::all_of(column.begin(), column.end(), [](unsigned char c) { return std::isdigit(c) != 0; }))
      r.fail(line, "console_column_limit is written COLUMNSxROWS:COLUMN, not \"" + item + "\"");
    const ConsoleModeSize size = parse_mode(r, trim(item.substr(0, colon)), line);
    auto mode = std::find_if(modes.begin(), modes.end(), [&](const ConsoleModeSize& m) {
      return m.columns == size.columns && m.rows == size.rows;
    });
    if (mode == modes.end())
      r.fail(line, "console_column_limit names " + item.substr(0, colon) + ", which is not a console mode");
    const int first = std::stoi(column);
    if (first < 1 || first >= mode->columns)
      r.fail(line, "console_column_limit: the column must lie between 1 and " + std::to_string(mode->columns - 1));
    mode->first_refused_column = first;
  }
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

Profile build(const Reader& r, const std::vector<Section>& sections) {
  Profile p;
  p.source = r.source();
  std::set<std::string> seen;
  std::string column_limits;  // applied once the modes are known
  int column_limits_line = 0;
  for (const Section& s : sections) {
    auto text = [&](std::string& field) { return [&field](const std::string& v) { field = v; }; };
    const bool single = s.name == "machine" || s.name == "bios" || s.name == "system" || s.name == "language";
    if (single && !seen.insert(s.name).second) r.fail(s.line, "[" + s.name + "] appears twice");
    if (s.name == "machine") {
      r.read(s,
             {{"name", text(p.name)},
              {"memory_mib", [&](const std::string&) { p.memory_mib = r.number(s, "memory_mib", 32, 65536); }},
              {"processors",
               [&](const std::string&) { p.logical_processors = static_cast<unsigned>(r.number(s, "processors", 1, 64)); }},
              {"console_modes",
               [&](const std::string& v) {
                 const int line = s.values.at("console_modes").second;
                 for (const std::string& m : split_list(v)) p.console_modes.push_back(parse_mode(r, m, line));
                 if (p.console_modes.empty() || p.console_modes[0].columns != 80 || p.console_modes[0].rows != 25)
                   r.fail(line, "the first console mode must be 80x25, as on every firmware");
               }},
              {"console_column_limit",
               [&](const std::string& v) {
                 column_limits = v;
                 column_limits_line = s.values.at("console_column_limit").second;
               }},
              {"clock_start",
               [&](const std::string& v) { p.clock_start = parse_time(r, v, s.values.at("clock_start").second); }},
              {"firmware_vendor", text(p.firmware_vendor)},
              {"ata_error_status",
               [&](const std::string& v) {
                 if (v != "device_error" && v != "success")
                   r.fail(s.line_of("ata_error_status"), "ata_error_status must be device_error or success");
                 p.ata_error_report = v == "success" ? AtaErrorReport::kSuccess : AtaErrorReport::kDeviceError;
               }},
              {"smbios_entry_point",
               [&](const std::string& v) {
                 if (v != "2" && v != "3" && v != "both")
                   r.fail(s.line_of("smbios_entry_point"), "smbios_entry_point must be 2, 3 or both");
                 p.smbios_entry_points = v == "2" ? SmbiosEntryPoints::k2
                                         : v == "3" ? SmbiosEntryPoints::k3
                                                    : SmbiosEntryPoints::kBoth;
               }},
              {"ata_io_align",
               [&](const std::string&) {
                 p.ata_io_align = static_cast<uint32_t>(r.number(s, "ata_io_align", 0, 65536));
                 if ((p.ata_io_align & (p.ata_io_align - 1)) != 0)
                   r.fail(s.line_of("ata_io_align"), "ata_io_align must be 0 or a power of two");
               }}},
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
      DriveInfo d = read_drive(r, s);
      for (const DriveInfo& other : p.drives)
        if (other.port == d.port && (other.multiplier_port == kDirectAttach || d.multiplier_port == kDirectAttach ||
                                     other.multiplier_port == d.multiplier_port))
          r.fail(s.values.at("port").second, "two drives on port " + std::to_string(d.port));
      p.drives.push_back(d);
    } else if (s.name == "nvme") {
      if (p.nvme_drives.size() == 16) r.fail(s.line, "at most 16 [nvme] drives");
      p.nvme_drives.push_back(read_nvme(r, s));
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
  apply_column_limits(r, column_limits, column_limits_line, p.console_modes);
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
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw ProfileError(path, 0, "is a folder, not a machine profile");
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ProfileError(path, 0, std::string("cannot be read: ") + (errno != 0 ? std::strerror(errno) : "unknown reason"));
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
