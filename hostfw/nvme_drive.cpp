#include "hostfw/nvme_drive.h"

#include <algorithm>

namespace hostfw {
using namespace nvme;
namespace {

constexpr uint64_t kSecond = 1000ull * 1000 * 1000;
constexpr uint64_t kHour = 3600 * kSecond;
constexpr uint32_t kAllNamespaces = 0xFFFFFFFF;

}  // namespace

uint64_t NvmeCommandCounts::changing_commands() const {
  uint64_t n = 0;
  for (uint8_t op : {kWrite, kWriteUncorrectable, kWriteZeroes, kDatasetManagement}) n += io_command(op);
  for (uint8_t op : {kFormatNvm, kSanitize, kFirmwareDownload, kFirmwareCommit, kSetFeatures, kNamespaceManagement})
    n += admin_command(op);
  return n;
}

uint64_t NvmeCommandCounts::others_than(const std::vector<uint8_t>& admin_opcodes,
                                        const std::vector<uint8_t>& io_opcodes) const {
  uint64_t n = 0;
  for (const auto& [op, times] : admin)
    if (std::find(admin_opcodes.begin(), admin_opcodes.end(), op) == admin_opcodes.end()) n += times;
  for (const auto& [op, times] : io)
    if (std::find(io_opcodes.begin(), io_opcodes.end(), op) == io_opcodes.end()) n += times;
  return n;
}

NvmeDrive::NvmeDrive(const NvmeInfo& drive) : info(drive), bad(drive.namespaces), media_errors(drive.media_errors) {
  for (const NamespaceLbas& b : info.bad_lbas) bad[b.nsid - 1].add(b.first, b.last);
  for (const NamespaceLbas& e : info.error_log_lbas) log_error(kUnrecoveredReadError, e.nsid, e.first);
}

std::optional<uint64_t> NvmeDrive::first_bad(uint32_t nsid, uint64_t lba, uint64_t count) const {
  uint64_t found = 0;
  if (count == 0 || !bad[nsid - 1].first_in(lba, count, &found)) return std::nullopt;
  return found;
}

void NvmeDrive::log_error(Status status, uint32_t nsid, uint64_t lba) {
  ++error_count;
  errors.push_back({error_count, 1, static_cast<uint16_t>(error_count), status, nsid, lba});
  if (errors.size() > kErrorEntries) errors.erase(errors.begin());
}

uint64_t NvmeDrive::media_ns(uint64_t blocks) const {
  if (info.media_mb_per_s == 0) return 0;
  // Bytes at MB/s (10^6 bytes a second) take bytes * 1000 / rate nanoseconds.
  return blocks * info.lba_bytes * 1000 / info.media_mb_per_s;
}

uint64_t NvmeDrive::power_on_hours(uint64_t now_ns) const { return info.power_on_hours + now_ns / kHour; }

// ---- Self-tests ------------------------------------------------------------------

uint64_t NvmeDrive::self_test_ns(uint8_t code) const {
  const uint64_t short_ns = info.self_test_seconds * kSecond;
  return code == kSelfTestShort ? short_ns : code == kSelfTestExtended ? 10 * short_ns : 0;
}

Status NvmeDrive::start_self_test(uint8_t code, uint32_t nsid, uint64_t now_ns) {
  settle(now_ns);
  if (code == kSelfTestAbort) {
    if (running)
      self_tests.insert(self_tests.begin(),
                        {running->code, kResultAbortedByCommand, power_on_hours(now_ns), running->nsid, std::nullopt});
    running.reset();
  } else if (code == kSelfTestShort || code == kSelfTestExtended) {
    if (running) return kSelfTestInProgress;
    running = RunningTest{code, nsid, now_ns, self_test_ns(code)};
  } else {
    return kInvalidField;
  }
  if (self_tests.size() > kSelfTestResults) self_tests.pop_back();
  return kSuccess;
}

void NvmeDrive::settle(uint64_t now_ns) {
  if (!running || now_ns - running->start_ns < running->full_ns) return;
  SelfTestResult r{running->code, kResultPassed, power_on_hours(running->start_ns + running->full_ns), running->nsid,
                   std::nullopt};
  if (info.self_test == NvmeSelfTest::kFail) {
    r.result = kResultFailedSegment;
    // The read test segment names the first unreadable LBA of the tested
    // namespaces, if there is one.
    for (uint32_t ns = 1; ns <= info.namespaces && !r.failing_lba; ++ns) {
      if ((running->nsid == ns || running->nsid == kAllNamespaces) && !bad[ns - 1].empty()) {
        r.nsid = ns;
        r.failing_lba = bad[ns - 1].first();
      }
    }
  }
  self_tests.insert(self_tests.begin(), r);
  if (self_tests.size() > kSelfTestResults) self_tests.pop_back();
  running.reset();
}

}  // namespace hostfw
