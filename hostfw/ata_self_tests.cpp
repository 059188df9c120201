// Self-tests of a simulated drive, run on the machine clock.
#include "hostfw/ata_drive.h"

#include <algorithm>
#include <cstring>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

constexpr uint64_t kSecond = 1000000000ull;

// Tenths of the work left at offset into a test of full length (1..9 while running).
uint8_t tenths_left(uint64_t offset, uint64_t full) {
  if (offset >= full) return 0;
  const uint64_t left = ((full - offset) * 10 + full - 1) / full;
  return static_cast<uint8_t>(std::min<uint64_t>(left, 9));
}

}  // namespace

uint64_t AtaDrive::duration_ns(uint8_t subcommand) const {
  switch (subcommand) {
    case kShortSelfTest:
    case kVendorDriveSelfTest: return 120 * kSecond;
    case kConveyanceSelfTest: return 180 * kSecond;
    case kExtendedSelfTest: {
      // Five minutes plus two per TiB: far quicker than a real surface scan.
      const uint64_t tib_tenths = info.sectors * 10 / (1ull << 31);
      return 300 * kSecond + tib_tenths * 12 * kSecond;
    }
    default: return 0;
  }
}

void AtaDrive::start_test(uint8_t subcommand, uint64_t now_ns) {
  AtaDrive::RunningTest t;
  t.subcommand = subcommand;
  t.start_ns = now_ns;
  t.full_ns = duration_ns(subcommand);
  t.end_ns = now_ns + t.full_ns;
  t.failing_lba = kNoFailingLba;
  uint64_t fail_offset = 0;
  if (info.self_test_end_status >= 0) {
    // The profile says how every test ends: the result and the tenths of
    // the work left when it stopped.
    const uint8_t status = static_cast<uint8_t>(info.self_test_end_status);
    const uint64_t left = std::min<uint64_t>(status & 0x0F, 9);
    fail_offset = std::max(t.full_ns * (10 - left) / 10, kSecond);
    t.end_status = status;
    t.end_ns = now_ns + (status >> 4 == kTestPassed ? t.full_ns : fail_offset);
    t.failing_lba = info.self_test_failing_lba != kNoFailingLba ? info.self_test_failing_lba
                    : bad.empty()                                ? kNoFailingLba
                                                                 : bad.first();
  } else if (!bad.empty()) {
    // The extended test reads the whole surface in order and stops at the
    // first unreadable sector; the short tests' read scan finds it about
    // three fifths of the way through.
    t.failing_lba = bad.first();
    fail_offset = subcommand == kExtendedSelfTest
                      ? static_cast<uint64_t>(static_cast<double>(t.full_ns) * static_cast<double>(t.failing_lba) /
                                              static_cast<double>(info.sectors))
                      : t.full_ns * 3 / 5;
    fail_offset = std::max(fail_offset, kSecond);
    t.end_status = static_cast<uint8_t>(kTestReadFailure << 4 | tenths_left(fail_offset, t.full_ns));
    t.end_ns = now_ns + fail_offset;
  } else if (info.smart_failing) {
    // Nothing unreadable, but the mechanics fail a third of the way in.
    fail_offset = t.full_ns / 3;
    t.end_status = static_cast<uint8_t>(kTestServoFailure << 4 | tenths_left(fail_offset, t.full_ns));
    t.end_ns = now_ns + fail_offset;
  }
  running = t;
}

// Brings a running self-test up to now: ends it when its time is over.
void AtaDrive::settle(uint64_t now_ns) {
  if (!running || now_ns < running->end_ns) return;
  const RunningTest t = *running;
  running.reset();
  record_test(t.subcommand, t.end_status, static_cast<uint16_t>(power_on_hours(t.end_ns)), t.failing_lba);
  if ((t.end_status >> 4) == kTestReadFailure) offline_uncorrectable = pending;
}

// Stops a running self-test with that status (aborted, interrupted by reset).
void AtaDrive::interrupt(uint8_t why, uint64_t now_ns) {
  settle(now_ns);
  if (!running) return;
  const RunningTest t = *running;
  running.reset();
  record_test(t.subcommand, static_cast<uint8_t>(why << 4 | tenths_left(now_ns - t.start_ns, t.full_ns)),
              static_cast<uint16_t>(power_on_hours(now_ns)), kNoFailingLba);
}

void AtaDrive::record_test(uint8_t subcommand, uint8_t status, uint16_t hours, uint64_t failing_lba) {
  SelfTestEntry e;
  e.subcommand = subcommand;
  e.status = status;
  e.hours = hours;
  // The failing LBA is reported for a test that failed and named one.
  e.failing_lba = status >> 4 == kTestPassed ? kNoFailingLba : failing_lba;
  self_tests.push_back(e);
  const size_t capacity = std::max<size_t>(kSelfTestEntries, size_t{kExtSelfTestEntries} * info.log_pages);
  if (self_tests.size() > capacity) self_tests.erase(self_tests.begin());
  ++logged_tests;
  self_test_status = status;
}

uint8_t AtaDrive::execution_status(uint64_t now_ns) {
  settle(now_ns);
  if (!running) return self_test_status;
  const uint8_t left = std::max<uint8_t>(tenths_left(now_ns - running->start_ns, running->full_ns), 1);
  return static_cast<uint8_t>(kTestInProgress << 4 | left);
}

}  // namespace hostfw
