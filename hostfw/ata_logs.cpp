// The logs of a simulated drive: directories and self-test logs.
#include "hostfw/ata_drive.h"

#include <algorithm>
#include <cstring>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

}  // namespace

// Log directory: the page count of each log at bytes 2 x address.
void AtaDrive::directory(uint8_t* out, bool general_purpose) {
  std::memset(out, 0, 512);
  put_le(out, 0x0001, 2);
  if (general_purpose)
    put_le(out + 2 * kExtSelfTestLog, 1, 2);
  else
    put_le(out + 2 * kSelfTestLog, 1, 2);
}

void AtaDrive::self_test_log(uint8_t* out) const {
  std::memset(out, 0, 512);
  put_le(out, 0x0001, 2);
  const size_t n = log.size();
  for (size_t k = 0; k < n; ++k) {
    // Entries fill the page circularly; the index names the newest.
    const uint64_t number = logged_tests - n + k;  // 0-based, over all tests
    uint8_t* e = out + 2 + 24 * (number % size_t{kSelfTestEntries});
    e[0] = log[k].subcommand;
    e[1] = log[k].status;
    put_le(e + 2, log[k].hours, 2);
    put_le(e + 5, std::min<uint64_t>(log[k].failing_lba, 0xFFFFFFFF), 4);
  }
  if (logged_tests > 0) out[508] = static_cast<uint8_t>((logged_tests - 1) % size_t{kSelfTestEntries} + 1);
  set_checksum(out);
}

void AtaDrive::ext_self_test_log(uint8_t* out) const {
  std::memset(out, 0, 512);
  out[0] = 0x01;
  const size_t n = std::min(log.size(), size_t{kExtSelfTestEntries});
  for (size_t k = log.size() - n; k < log.size(); ++k) {
    const uint64_t number = logged_tests - log.size() + k;
    uint8_t* e = out + 4 + 26 * (number % size_t{kExtSelfTestEntries});
    e[0] = log[k].subcommand;
    e[1] = log[k].status;
    put_le(e + 2, log[k].hours, 2);
    put_le(e + 5, log[k].failing_lba, 6);
  }
  if (logged_tests > 0) put_le(out + 2, (logged_tests - 1) % size_t{kExtSelfTestEntries} + 1, 2);
  set_checksum(out);
}

}  // namespace hostfw
