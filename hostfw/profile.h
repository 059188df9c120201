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

constexpr uint16_t kDirectAttach = 0xFFFF;  // a drive's port-multiplier port when it has none

// An ATA drive behind the AHCI controller, as the profile describes it
// (docs/machine-profile.md, "[drive]").
struct DriveInfo {
  uint16_t port = 0;
  uint16_t multiplier_port = kDirectAttach;
  std::string model, serial, firmware;  // bytes, as IDENTIFY reports them
  uint64_t sectors = 0;                 // logical sectors
  bool atapi = false;                   // a packet device: aborts IDENTIFY DEVICE
  bool lba48 = true;                    // the 48-bit address feature set
  uint32_t logical_sector_bytes = 512;
  uint32_t physical_sector_bytes = 512;
  uint16_t major_version = 0x03F0;  // IDENTIFY word 80: ATA/ATAPI-4 to ACS-2
  uint16_t minor_version = 0x0110;  // IDENTIFY word 81: ACS-2 revision 3
  uint32_t cache_kib = 0;
  uint16_t rotation_rpm = 0;  // 0 = not reported, 1 = solid state
  uint32_t media_mb_per_s = 0;  // reads and writes of the media take machine time; 0: instant
  int identify_fill = -1;     // IDENTIFY DEVICE answers 512 bytes of this value; -1: the drive's identity
  bool unc_lba_unreported = false;  // an uncorrectable error leaves the LBA registers zero

  // SMART.
  bool smart_supported = true;
  bool smart_enabled = true;  // at power-on
  bool refuse_smart_enable = false;
  bool smart_failing = false;
  uint8_t temperature_c = 35;        // attribute 194
  uint32_t power_on_hours = 0;       // attribute 9 when the machine starts
  uint64_t reallocated_sectors = 0;  // attribute 5's raw count at power-on
  uint8_t reallocated_threshold = 36;
  uint64_t spare_sectors = 2048;  // reallocations that wear attribute 5's value down to 1
  std::vector<uint8_t> absent_attributes;

  // Self-tests.
  bool self_test_supported = true;
  bool refuse_vendor_self_test = false;
  bool self_test_running = false;  // an extended self-test runs at power-on
  int self_test_end_status = -1;   // how every self-test ends; -1: as the media says
  uint64_t self_test_failing_lba = 0xFFFFFFFFFFFFull;

  // Logs.
  bool log_directories = true;
  uint16_t log_pages = 1;  // of logs 0x02, 0x03 and 0x07
  uint16_t log_directory_pages = 0;  // what both directories claim for every log; 0: what the logs hold
  std::vector<uint64_t> error_log_lbas;      // oldest first
  std::vector<uint64_t> self_test_log_lbas;  // past self-tests that failed there, oldest first

  // The media and its faults.
  std::vector<BadSectorRange> bad_sectors;          // UNC until written
  std::vector<BadSectorRange> unwritable_sectors;   // UNC, and writing fails
  std::vector<BadSectorRange> unrecoverable_sectors;  // UNC, still after a write
  std::vector<BadSectorRange> idnf_sectors;         // IDNF on every access
  std::vector<BadSectorRange> abort_sectors;        // ABRT on every access
  std::vector<BadSectorRange> hang_sectors;         // an access never completes
  uint64_t stop_answering_after = UINT64_MAX;       // commands it answers before it falls silent
};

// LBAs of one namespace of an NVMe drive, both ends included.
struct NamespaceLbas {
  uint32_t nsid = 1;
  uint64_t first = 0, last = 0;
};

enum class NvmeSelfTest { kPass, kFail, kUnsupported };

// An NVMe drive: one controller with its namespaces, as the profile
// describes it (docs/machine-profile.md, "[nvme]").
struct NvmeInfo {
  std::string model, serial, firmware;  // bytes, as Identify Controller reports them
  uint64_t blocks = 0;                  // of each namespace
  uint32_t lba_bytes = 512;
  uint32_t namespaces = 1;      // active, numbered from 1
  uint32_t max_namespaces = 1;  // Identify Controller's NN: namespace IDs 1..NN exist, active or not
  uint8_t mdts = 5;  // largest data transfer: 2^mdts memory pages of 4 KiB
  uint32_t io_align = 8;
  uint32_t media_mb_per_s = 0;  // Read and Verify take machine time; 0: instant

  // SMART / Health Information.
  uint8_t critical_warning = 0;
  uint8_t available_spare = 100, spare_threshold = 10, percentage_used = 0;
  uint64_t media_errors = 0;
  uint8_t temperature_c = 38;
  uint64_t power_on_hours = 0;  // when the machine starts; grows with machine time
  uint64_t power_cycles = 0, unsafe_shutdowns = 0;

  NvmeSelfTest self_test = NvmeSelfTest::kPass;
  uint32_t self_test_seconds = 120;  // a short self-test; an extended one takes 10 times as long

  bool verify = true;  // the Verify command (ONCS bit 7)
  std::vector<NamespaceLbas> bad_lbas;       // Read and Verify end with Unrecovered Read Error
  std::vector<NamespaceLbas> error_log_lbas;  // the Error Information log at power-on, oldest first
  uint64_t stop_answering_after = UINT64_MAX;  // commands it answers before it falls silent
};

struct VolumeInfo {  // a FAT volume, backed by a host directory
  std::string label;
  std::string directory;  // absolute once loaded
  uint64_t size_mib = 64;
  bool read_only = false;
  bool fail_writes = false;  // every Write reports a device error
};

// How the SATA controller's pass-through reports a command that ended with
// an ATA error.
enum class AtaErrorReport {
  kDeviceError,  // EFI_DEVICE_ERROR, as the UEFI specification describes
  kSuccess,      // EFI_SUCCESS, the error only in the status block (older OVMF)
};

// Which SMBIOS entry points the firmware publishes for its one table.
enum class SmbiosEntryPoints {
  k2,     // the 32-bit "_SM_" entry point only (older firmware)
  k3,     // the 64-bit "_SM3_" entry point only (firmware with large tables)
  kBoth,  // both, as most current firmware does
};

struct Profile {
  std::string name;
  std::string source;  // the file it came from, or "<embedded default machine>"
  uint64_t memory_mib = 256;
  unsigned logical_processors = 1;  // the BSP and the APs the MP services run procedures on
  std::vector<ConsoleModeSize> console_modes;  // mode 0 first; at least 80x25
  WallClockStart clock_start;
  std::string firmware_vendor = "Tarvik Host Firmware";
  BiosInfo bios;
  SystemInfo system;
  std::vector<ProcessorInfo> processors;
  LanguageInfo language;
  std::vector<MemoryModuleInfo> memory_modules;
  std::vector<DriveInfo> drives;
  AtaErrorReport ata_error_report = AtaErrorReport::kDeviceError;
  uint32_t ata_io_align = 2;
  std::vector<NvmeInfo> nvme_drives;  // in the order of the file
  SmbiosEntryPoints smbios_entry_points = SmbiosEntryPoints::kBoth;
  std::vector<VolumeInfo> volumes;
};

// A profile that cannot be used: where and why.
class ProfileError : public std::runtime_error {
 public:
  ProfileError(const std::string& file, int line, const std::string& reason)
      : std::runtime_error(file + (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " + reason),
        file_(file), line_(line),
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
