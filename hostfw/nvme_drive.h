// One simulated NVMe drive: a controller and its namespaces, what it keeps
// between commands (unreadable LBAs, health figures, its error and
// self-test logs, a running self-test, what it was sent) and the pages it
// answers with. Commands reach it decoded (nvme_commands.cpp); the
// definitions are split by subject: nvme_drive.cpp (the media and
// self-tests) and nvme_pages.cpp (Identify data and log pages).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "hostfw/nvme_command_set.h"
#include "hostfw/profile.h"
#include "hostfw/sector_set.h"

namespace hostfw {

// What a drive was sent, for tests to assert on: every command that reached
// it (packets the firmware refused never do), admin and I/O apart.
struct NvmeCommandCounts {
  uint64_t total = 0;
  std::map<uint8_t, uint64_t> admin;  // by opcode
  std::map<uint8_t, uint64_t> io;     // by opcode

  uint64_t admin_command(uint8_t opcode) const { return find(admin, opcode); }
  uint64_t io_command(uint8_t opcode) const { return find(io, opcode); }
  // Commands that change what the drive stores: I/O writes of any kind,
  // Format NVM, Sanitize, firmware download and commit, Set Features,
  // namespace management.
  uint64_t changing_commands() const;
  // Every opcode but the ones named, admin and I/O together: what a program
  // that sends only those sent besides.
  uint64_t others_than(const std::vector<uint8_t>& admin_opcodes, const std::vector<uint8_t>& io_opcodes) const;

 private:
  static uint64_t find(const std::map<uint8_t, uint64_t>& map, uint8_t key) {
    auto it = map.find(key);
    return it == map.end() ? 0 : it->second;
  }
};

struct NvmeDrive {
  struct ErrorEntry {
    uint64_t count = 0;  // the error's number, from 1
    uint16_t queue = 1;
    uint16_t command_id = 0;
    nvme::Status status;
    uint32_t nsid = 0;
    uint64_t lba = 0;
  };
  struct SelfTestResult {
    uint8_t code = 0;    // short or extended
    uint8_t result = 0;  // passed, aborted, failed segment
    uint64_t hours = 0;
    uint32_t nsid = 0;
    std::optional<uint64_t> failing_lba;
  };
  struct RunningTest {
    uint8_t code = 0;
    uint32_t nsid = 0;
    uint64_t start_ns = 0;
    uint64_t full_ns = 0;
  };

  explicit NvmeDrive(const NvmeInfo& drive);

  bool namespace_exists(uint32_t nsid) const { return nsid >= 1 && nsid <= info.namespaces; }
  bool in_range(uint64_t lba, uint64_t count) const { return lba < info.blocks && count <= info.blocks - lba; }
  // The first unreadable LBA of a range of a namespace, if any.
  std::optional<uint64_t> first_bad(uint32_t nsid, uint64_t lba, uint64_t count) const;
  // A written LBA reads again: the controller maps a fresh block in.
  void write(uint32_t nsid, uint64_t lba, uint64_t count) { bad[nsid - 1].remove(lba, lba + count - 1); }
  // A command that ended in error goes into the Error Information log.
  void log_error(nvme::Status status, uint32_t nsid, uint64_t lba);
  // How long passing over that many blocks takes at the media rate; 0 on a
  // drive without one, which answers at once.
  uint64_t media_ns(uint64_t blocks) const;
  uint64_t power_on_hours(uint64_t now_ns) const;
  uint64_t transfer_limit() const { return uint64_t{nvme::kMemoryPageBytes} << info.mdts; }

  // ---- Self-tests (nvme_drive.cpp) ----
  bool self_test_supported() const { return info.self_test != NvmeSelfTest::kUnsupported; }
  uint64_t self_test_ns(uint8_t code) const;
  nvme::Status start_self_test(uint8_t code, uint32_t nsid, uint64_t now_ns);
  // Brings a running self-test up to now: ends it when its time is over.
  void settle(uint64_t now_ns);

  // ---- Pages (nvme_pages.cpp), each the page's full size ----
  std::vector<uint8_t> identify_controller() const;
  std::vector<uint8_t> identify_namespace(uint32_t nsid) const;
  std::vector<uint8_t> active_namespaces(uint32_t after) const;
  std::vector<uint8_t> error_log() const;
  std::vector<uint8_t> smart_health_log(uint64_t now_ns) const;
  std::vector<uint8_t> self_test_log(uint64_t now_ns) const;

  NvmeInfo info;
  std::vector<SectorSet> bad;  // by namespace
  std::vector<ErrorEntry> errors;  // oldest first, at most kErrorEntries
  uint64_t error_count = 0;        // ever
  uint64_t media_errors = 0;
  uint64_t bytes_read = 0, bytes_written = 0;
  uint64_t read_commands = 0, write_commands = 0;
  std::optional<RunningTest> running;
  std::vector<SelfTestResult> self_tests;  // newest first, at most kSelfTestResults
  NvmeCommandCounts counts;
};

}  // namespace hostfw
