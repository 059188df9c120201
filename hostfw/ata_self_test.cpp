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

void record(AtaDrive& d, uint8_t subcommand, uint8_t status, uint64_t at_ns, uint64_t failing_lba) {
  AtaDrive::SelfTestEntry e;
  e.subcommand = subcommand;
  e.status = status;
  e.hours = static_cast<uint16_t>(d.power_on_hours(at_ns));
  e.failing_lba = (status >> 4) == kTestReadFailure ? failing_lba : 0xFFFFFFFFFFFFull;
  d.log.push_back(e);
  if (d.log.size() > size_t{kSelfTestEntries}) d.log.erase(d.log.begin());
  ++d.logged_tests;
  d.self_test_status = status;
}


}  // namespace

uint64_t AtaDrive::duration_ns(uint8_t subcommand) const {
  switch (subcommand) {
    case kShortSelfTest: return 120 * kSecond;
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
  uint64_t fail_offset = 0;
  if (!bad.empty()) {
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
    t.failing_lba = 0xFFFFFFFFFFFFull;
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
  record(*this, t.subcommand, t.end_status, t.end_ns, t.failing_lba);
  if ((t.end_status >> 4) == kTestReadFailure) offline_uncorrectable = pending;
}

// Stops a running self-test with that status (aborted, interrupted by reset).
void AtaDrive::interrupt(uint8_t why, uint64_t now_ns) {
  settle(now_ns);
  if (!running) return;
  const RunningTest t = *running;
  running.reset();
  record(*this, t.subcommand, static_cast<uint8_t>(why << 4 | tenths_left(now_ns - t.start_ns, t.full_ns)), now_ns, 0);
}

uint8_t AtaDrive::execution_status(uint64_t now_ns) {
  settle(now_ns);
  if (!running) return self_test_status;
  const uint8_t left = std::max<uint8_t>(tenths_left(now_ns - running->start_ns, running->full_ns), 1);
  return static_cast<uint8_t>(kTestInProgress << 4 | left);
}


}  // namespace hostfw
