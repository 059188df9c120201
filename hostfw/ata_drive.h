// One simulated ATA drive: what it keeps between commands (unreadable
// sectors, remapped ones, SMART state, self-tests and their log) and the
// pages it answers with. Commands reach it decoded (ata_commands.cpp); the
// definitions are split by subject: ata_drive.cpp (the media),
// ata_identify.cpp, ata_smart.cpp, ata_self_test.cpp and ata_logs.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hostfw/profile.h"
#include "hostfw/sector_set.h"

namespace hostfw {

// Little-endian fields of the pages a drive sends.
void put_le(uint8_t* at, uint64_t value, int bytes);
// The last byte of a 512-byte page makes the page sum to zero.
void set_checksum(uint8_t* page);

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

  explicit AtaDrive(const DriveInfo& drive);

  // ---- The media (ata_drive.cpp) ----
  bool in_range(uint64_t lba, uint64_t count) const { return lba < info.sectors && count <= info.sectors - lba; }
  // The first unreadable sector of the range, if any.
  bool first_unreadable(uint64_t lba, uint64_t count, uint64_t* found) const { return bad.first_in(lba, count, found); }
  // Writing replaces an unreadable sector by a spare.
  void write(uint64_t lba, uint64_t count);
  void make_uncorrectable(uint64_t lba, uint64_t count);

  // ---- IDENTIFY (ata_identify.cpp) ----
  void build_identify();
  void identify_data(uint8_t* out);

  // ---- SMART (ata_smart.cpp) ----
  bool rotating() const { return info.rotation_rpm != 1; }
  uint64_t power_on_hours(uint64_t now_ns) const;
  uint8_t reallocated_value() const;
  std::vector<Attribute> attributes(uint64_t now_ns);
  bool threshold_exceeded(uint64_t now_ns);
  void smart_data(uint8_t* out, uint64_t now_ns);
  void smart_thresholds(uint8_t* out, uint64_t now_ns);

  // ---- Self-tests (ata_self_test.cpp) ----
  uint64_t duration_ns(uint8_t subcommand) const;
  void start_test(uint8_t subcommand, uint64_t now_ns);
  // Brings a running self-test up to now: ends it when its time is over.
  void settle(uint64_t now_ns);
  // Stops a running self-test with that status (aborted, interrupted by reset).
  void interrupt(uint8_t why, uint64_t now_ns);
  uint8_t execution_status(uint64_t now_ns);

  // ---- Logs (ata_logs.cpp) ----
  static void directory(uint8_t* out, bool general_purpose);
  void self_test_log(uint8_t* out) const;
  void ext_self_test_log(uint8_t* out) const;

  DriveInfo info;
  SectorSet bad;
  uint64_t reallocated = 0;
  uint64_t pending = 0;
  uint64_t offline_uncorrectable = 0;
  uint8_t worst_reallocated_value = 100;
  bool smart_enabled = true;
  uint8_t offline_status = 0x82;  // collection completed, automatic off-line enabled
  uint8_t self_test_status = 0x00;
  std::optional<RunningTest> running;
  std::vector<SelfTestEntry> log;  // oldest first
  uint64_t logged_tests = 0;
  std::array<uint16_t, 256> identify{};
};

}  // namespace hostfw
