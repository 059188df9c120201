// One simulated ATA drive: what it keeps between commands (unreadable and
// faulty sectors, remapped ones, SMART state, self-tests, its error and
// self-test logs, what it was sent) and the pages it answers with. Commands
// reach it decoded (ata_commands.cpp); the definitions are split by subject:
// ata_drive.cpp (the media), ata_identify.cpp, ata_smart.cpp,
// ata_self_tests.cpp and ata_logs.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hostfw/little_endian.h"
#include "hostfw/profile.h"
#include "hostfw/sector_set.h"

namespace hostfw {

// The last byte of a 512-byte page makes the page sum to zero.
void set_checksum(uint8_t* page);

// What a drive was sent, for tests to assert on: every command that reached
// it (packets the controller refused never do), and every sector a command
// changed.
struct AtaCommandCounts {
  uint64_t total = 0;
  std::map<uint8_t, uint64_t> by_command;        // by opcode
  std::map<uint8_t, uint64_t> by_smart_feature;  // SMART (0xB0) commands by feature
  std::map<uint64_t, uint64_t> sector_writes;    // LBA -> WRITE SECTORS (EXT) that wrote it
  std::map<uint64_t, uint64_t> uncorrectable_marks;  // LBA -> WRITE UNCORRECTABLE EXT that marked it
  uint64_t resets = 0;                               // ResetPort / ResetDevice

  uint64_t command(uint8_t opcode) const { return find(by_command, opcode); }
  uint64_t smart(uint8_t feature) const { return find(by_smart_feature, feature); }
  uint64_t writes_at(uint64_t lba) const { return find(sector_writes, lba); }

 private:
  template <typename Map, typename Key>
  static uint64_t find(const Map& map, Key key) {
    auto it = map.find(key);
    return it == map.end() ? 0 : it->second;
  }
};

// How an access to the media ends at its first faulty sector.
enum class MediaFault { kNone, kUncorrectable, kIdNotFound, kAbort, kHang, kUnwritable };

struct AtaDrive {
  struct Attribute {
    uint8_t id;
    uint16_t flags;
    uint8_t value, worst, threshold;
    uint64_t raw;
  };
  struct SelfTestEntry {
    uint8_t subcommand = 0;
    uint8_t status = 0;
    uint16_t hours = 0;
    uint64_t failing_lba = 0;
  };
  struct RunningTest {
    uint8_t subcommand = 0;
    uint64_t start_ns = 0;
    uint64_t full_ns = 0;  // how long it takes when nothing goes wrong
    uint64_t end_ns = 0;   // when it ends (earlier when it fails)
    uint8_t end_status = 0;
    uint64_t failing_lba = 0;
  };
  struct ErrorEntry {
    uint64_t lba = 0;
    uint16_t hours = 0;
  };

  explicit AtaDrive(const DriveInfo& drive);

  // ---- The media (ata_drive.cpp) ----
  bool in_range(uint64_t lba, uint64_t count) const { return lba < info.sectors && count <= info.sectors - lba; }
  // The first faulty sector of the range for a read (or a write) and its fault.
  MediaFault first_fault(uint64_t lba, uint64_t count, bool writing, uint64_t* at) const;
  // Writing replaces an unreadable sector by a spare, unless it cannot be recovered.
  void write(uint64_t lba, uint64_t count);
  void make_uncorrectable(uint64_t lba, uint64_t count);
  // A read the drive could not complete goes into its error log.
  void log_error(uint64_t lba, uint64_t now_ns);
  // How long passing over that many sectors takes at the media rate; 0 on a
  // drive without one, which answers at once.
  uint64_t media_ns(uint64_t sectors) const;

  // ---- IDENTIFY (ata_identify.cpp) ----
  void build_identify();
  void identify_data(uint8_t* out);
  void identify_packet_data(uint8_t* out) const;

  // ---- SMART (ata_smart.cpp) ----
  bool rotating() const { return info.rotation_rpm != 1; }
  uint64_t power_on_hours(uint64_t now_ns) const;
  uint8_t reallocated_value() const;
  std::vector<Attribute> attributes(uint64_t now_ns);
  bool threshold_exceeded(uint64_t now_ns);
  void smart_data(uint8_t* out, uint64_t now_ns);
  void smart_thresholds(uint8_t* out, uint64_t now_ns);

  // ---- Self-tests (ata_self_tests.cpp) ----
  uint64_t duration_ns(uint8_t subcommand) const;
  void start_test(uint8_t subcommand, uint64_t now_ns);
  // Brings a running self-test up to now: ends it when its time is over.
  void settle(uint64_t now_ns);
  // Stops a running self-test with that status (aborted, interrupted by reset).
  void interrupt(uint8_t why, uint64_t now_ns);
  uint8_t execution_status(uint64_t now_ns);
  // Adds a finished test to the self-test log.
  void record_test(uint8_t subcommand, uint8_t status, uint16_t hours, uint64_t failing_lba);

  // ---- Logs (ata_logs.cpp) ----
  // Pages of a log as the SMART or the general-purpose directory lists it;
  // 0 for a log the drive does not keep.
  uint16_t log_pages(uint8_t address, bool general_purpose) const;
  // Pages [first, first + count) of a log; the caller checked they exist.
  void read_log(uint8_t address, uint64_t first, uint64_t count, bool general_purpose, uint8_t* out) const;

  DriveInfo info;
  SectorSet bad;            // fail reads with UNC
  SectorSet unwritable;     // fail writes
  SectorSet unrecoverable;  // stay unreadable after a write
  SectorSet idnf, aborting, hanging;
  uint64_t reallocated = 0;
  uint64_t pending = 0;
  uint64_t offline_uncorrectable = 0;
  uint8_t worst_reallocated_value = 100;
  bool smart_enabled = true;
  uint8_t offline_status = 0x82;  // collection completed, automatic off-line enabled
  uint8_t self_test_status = 0x00;
  std::optional<RunningTest> running;
  std::vector<SelfTestEntry> self_tests;  // oldest first
  uint64_t logged_tests = 0;              // ever, for the circular log index
  std::vector<ErrorEntry> errors;         // oldest first
  uint64_t logged_errors = 0;
  std::array<uint16_t, 256> identify{};
  AtaCommandCounts counts;
};

}  // namespace hostfw
