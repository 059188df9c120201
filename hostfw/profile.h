// The machine profile: everything the host firmware simulates, read from a
// human-readable file (see docs/machine-profile.md) or the embedded default.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace hostfw {

struct ConsoleModeSize {
  int columns = 80;
  int rows = 25;
  // SetCursorPosition refuses this column and those after it (0: none), as a
  // console splitter does in front of a narrower terminal.
  int first_refused_column = 0;
};

struct WallClockStart {
  int year = 2026, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

struct BiosInfo {  // SMBIOS type 0
  std::string vendor, version, release_date;
};

struct SystemInfo {  // SMBIOS type 1
  std::string manufacturer, product, version, serial, sku, family;
  uint8_t uuid[16] = {};
};

struct ProcessorInfo {  // SMBIOS type 4
  std::string socket, manufacturer, version, serial, part_number;
  uint16_t max_speed_mhz = 0, current_speed_mhz = 0, external_clock_mhz = 0;
  uint8_t core_count = 0, thread_count = 0;
};

struct LanguageInfo {  // SMBIOS type 13
  std::vector<std::string> installable;  // e.g. "en|US|iso8859-1"
  int current = 0;                       // index into installable
};

struct MemoryModuleInfo {  // SMBIOS type 17
  std::string locator, bank, manufacturer, serial, part_number;
  uint32_t size_mib = 0;
  uint16_t speed_mts = 0;
  uint8_t memory_type = 0x1A;  // DDR4
  uint8_t form_factor = 0x09;  // DIMM
};

struct BadSectorRange {
  uint64_t first = 0, last = 0;  // inclusive LBAs
};

struct DriveInfo {  // an ATA drive behind the AHCI controller
  uint16_t port = 0;
  std::string model, serial, firmware;
  uint64_t sectors = 0;
  uint16_t rotation_rpm = 0;  // 0 = not reported, 1 = solid state
  bool smart_failing = false;
  std::vector<BadSectorRange> bad_sectors;
  uint8_t temperature_c = 35;   // SMART attribute 194
  uint32_t power_on_hours = 0;  // SMART attribute 9 when the machine starts
  bool smart_enabled = true;    // SMART operations enabled at power-on
};

struct VolumeInfo {  // a FAT volume, backed by a host directory
  std::string label;
  std::string directory;  // absolute once loaded
  uint64_t size_mib = 64;
  bool read_only = false;
  bool fail_writes = false;  // every Write reports a device error
};

struct Profile {
  std::string name;
  std::string source;  // the file it came from, or "<embedded default machine>"
  uint64_t memory_mib = 256;
  std::vector<ConsoleModeSize> console_modes;  // mode 0 first; at least 80x25
  WallClockStart clock_start;
  std::string firmware_vendor = "Tarvik Host Firmware";
  BiosInfo bios;
  SystemInfo system;
  std::vector<ProcessorInfo> processors;
  LanguageInfo language;
  std::vector<MemoryModuleInfo> memory_modules;
  std::vector<DriveInfo> drives;
  std::vector<VolumeInfo> volumes;
};

// A profile that cannot be used: where and why.
class ProfileError : public std::runtime_error {
 public:
  ProfileError(const std::string& file, int line, const std::string& reason)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason), file_(file), line_(line),
        reason_(reason) {}
  const std::string& file() const { return file_; }
  int line() const { return line_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string file_;
  int line_;
  std::string reason_;
};

// Parses profile text. Relative volume directories are resolved against
// base_directory. Throws ProfileError.
Profile parse_profile(const std::string& text, const std::string& source, const std::string& base_directory);
// Reads and parses a profile file; relative paths resolve against its folder.
Profile load_profile_file(const std::string& path);
// The embedded default machine; relative paths resolve against base_directory.
Profile default_profile(const std::string& base_directory);
// The text of the embedded default machine.
const std::string& default_profile_text();

}  // namespace hostfw
