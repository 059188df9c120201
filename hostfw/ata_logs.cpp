// The logs of a simulated drive, laid out as ATA8-ACS has them: the two log
// directories, the summary, comprehensive and extended comprehensive error
// logs, and the SMART and extended self-test logs. Every log but the
// directories is circular: an entry's place follows from its number among
// all entries ever logged, and the header's index names the newest.
#include "hostfw/ata_drive.h"

#include <algorithm>
#include <cstring>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

constexpr uint8_t kReadDma = 0xC8, kReadDmaExt = 0x25;  // the commands the logged errors failed
constexpr uint8_t kDeviceLba = 0xE0;

// Fills the entries that fall on pages [first, first + count) of a circular
// log of `per_page` entries on each of `pages` pages.
template <typename Entry, typename Fill>
void place_entries(const std::vector<Entry>& entries, uint64_t logged, uint32_t per_page, uint64_t pages,
                   uint32_t first_byte, uint32_t entry_bytes, uint64_t first, uint64_t count, uint8_t* out,
                   Fill fill) {
  const uint64_t capacity = per_page * pages;
  const size_t n = std::min<size_t>(entries.size(), capacity);
  for (size_t k = entries.size() - n; k < entries.size(); ++k) {
    const uint64_t slot = (logged - entries.size() + k) % capacity;
    const uint64_t page = slot / per_page;
    if (page < first || page >= first + count) continue;
    fill(out + (page - first) * kPage + first_byte + entry_bytes * (slot % per_page), entries[k]);
  }
}

// The index of the newest entry, 1-based; 0 when nothing was logged.
uint64_t newest(uint64_t logged, uint64_t capacity) { return logged == 0 ? 0 : (logged - 1) % capacity + 1; }

// A 48-bit LBA as the extended logs keep it: bits 7:0, 31:24, 15:8, 39:32, 23:16, 47:40.
void put_ext_lba(uint8_t* at, uint64_t lba) {
  const int shifts[6] = {0, 24, 8, 32, 16, 40};
  for (int i = 0; i < 6; ++i) at[i] = static_cast<uint8_t>(lba >> shifts[i]);
}

// An entry of the summary and comprehensive error logs: the command that
// failed (the last of five command structures), then the error structure.
void put_error(uint8_t* e, const AtaDrive::ErrorEntry& error) {
  const uint8_t device = static_cast<uint8_t>(kDeviceLba | ((error.lba >> 24) & 0x0F));
  uint8_t* command = e + 48;
  command[2] = 1;
  put_le(command + 3, error.lba, 3);
  command[6] = device;
  command[7] = kReadDma;
  e[61] = kErrorUncorrectable;
  e[62] = 1;
  put_le(e + 63, error.lba, 3);
  e[66] = device;
  e[67] = kStatusError;
  put_le(e + 88, error.hours, 2);
}

void put_ext_error(uint8_t* e, const AtaDrive::ErrorEntry& error) {
  uint8_t* command = e + 72;
  command[3] = 1;
  put_ext_lba(command + 5, error.lba);
  command[11] = 0x40;
  command[12] = kReadDmaExt;
  e[91] = kErrorUncorrectable;
  e[92] = 1;
  put_ext_lba(e + 94, error.lba);
  e[100] = 0x40;
  e[101] = kStatusError;
  put_le(e + 122, error.hours, 2);
}

void put_self_test(uint8_t* e, const AtaDrive::SelfTestEntry& test, bool extended) {
  e[0] = test.subcommand;
  e[1] = test.status;
  put_le(e + 2, test.hours, 2);
  if (extended)
    put_le(e + 5, test.failing_lba, 6);
  else
    put_le(e + 5, std::min<uint64_t>(test.failing_lba, 0xFFFFFFFF), 4);
}

}  // namespace

uint16_t AtaDrive::log_pages(uint8_t address, bool general_purpose) const {
  const bool self_tests_kept = info.smart_supported && info.self_test_supported;
  switch (address) {
    case kLogDirectory: return info.log_directories ? 1 : 0;
    case kSummaryErrorLog: return general_purpose ? 0 : 1;
    case kComprehensiveErrorLog: return general_purpose ? 0 : info.log_pages;
    case kExtErrorLog: return general_purpose ? info.log_pages : 0;
    case kSelfTestLog: return !general_purpose && self_tests_kept ? 1 : 0;
    case kExtSelfTestLog: return general_purpose && self_tests_kept ? info.log_pages : 0;
    default: return 0;
  }
}

void AtaDrive::read_log(uint8_t address, uint64_t first, uint64_t count, bool general_purpose, uint8_t* out) const {
  std::memset(out, 0, count * kPage);
  const uint64_t pages = log_pages(address, general_purpose);
  switch (address) {
    case kLogDirectory:
      put_le(out, 0x0001, 2);
      // A directory may claim more than the drive keeps; reading it all aborts.
      for (int a = 1; a < 256; ++a) {
        const uint16_t kept = log_pages(static_cast<uint8_t>(a), general_purpose);
        put_le(out + 2 * a, info.log_directory_pages != 0 ? info.log_directory_pages : kept, 2);
      }
      break;
    case kSummaryErrorLog:
    case kComprehensiveErrorLog:
      place_entries(errors, logged_errors, kErrorEntries, pages, 2, kErrorEntryBytes, first, count, out, put_error);
      for (uint64_t p = 0; p < count; ++p) {
        out[p * kPage] = 0x01;
        put_le(out + p * kPage + 452, logged_errors, 2);  // device error count
      }
      if (first == 0) out[1] = static_cast<uint8_t>(std::min<uint64_t>(newest(logged_errors, kErrorEntries * pages), 255));
      break;
    case kExtErrorLog:
      place_entries(errors, logged_errors, kExtErrorEntries, pages, 4, kExtErrorEntryBytes, first, count, out,
                    put_ext_error);
      for (uint64_t p = 0; p < count; ++p) {
        out[p * kPage] = 0x01;
        put_le(out + p * kPage + 500, logged_errors, 2);
      }
      if (first == 0) put_le(out + 2, newest(logged_errors, kExtErrorEntries * pages), 2);
      break;
    case kSelfTestLog:
      place_entries(self_tests, logged_tests, kSelfTestEntries, 1, 2, kSelfTestEntryBytes, first, count, out,
                    [](uint8_t* e, const SelfTestEntry& t) { put_self_test(e, t, false); });
      put_le(out, 0x0001, 2);
      out[508] = static_cast<uint8_t>(newest(logged_tests, kSelfTestEntries));
      break;
    case kExtSelfTestLog:
      place_entries(self_tests, logged_tests, kExtSelfTestEntries, pages, 4, kExtSelfTestEntryBytes, first, count,
                    out, [](uint8_t* e, const SelfTestEntry& t) { put_self_test(e, t, true); });
      for (uint64_t p = 0; p < count; ++p) out[p * kPage] = 0x01;
      if (first == 0) put_le(out + 2, newest(logged_tests, kExtSelfTestEntries * pages), 2);
      break;
    default: break;
  }
  if (address != kLogDirectory)
    for (uint64_t p = 0; p < count; ++p) set_checksum(out + p * kPage);
}

}  // namespace hostfw
