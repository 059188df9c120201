// The drive log layouts on crafted pages: where each log keeps the LBA of
// every entry, and the directories' page counts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "storage/drive_logs.h"

namespace {

using tarvik::DriveLog;
using tarvik::DriveLogPageBytes;

using Page = std::vector<uint8_t>;

// A page whose every byte differs from its neighbours, so a byte read from
// the wrong place gives a wrong LBA.
Page patterned_page() {
  Page page(DriveLogPageBytes);
  for (size_t i = 0; i < page.size(); ++i) page[i] = static_cast<uint8_t>(i * 7 + 3);
  return page;
}

// The bytes at these offsets from an entry's start, the first the lowest;
// in a 28-bit LBA bits 24-27 are the low nibble of the byte after them.
uint64_t bytes_at(const Page& page, size_t entry, std::initializer_list<size_t> offsets, bool lba28 = false) {
  uint64_t value = 0;
  int shift = 0;
  for (size_t offset : offsets) {
    value |= uint64_t{page[entry + offset]} << shift;
    shift += 8;
  }
  return lba28 ? value | uint64_t{page[entry + offsets.end()[-1] + 1] & 0x0Fu} << 24 : value;
}

struct EntryLba {
  uint64_t count;
  UINT64 lbas[tarvik::MaxLbasPerLogEntry];
};

EntryLba lbas_of(DriveLog log, const Page& page, size_t index) {
  EntryLba out{};
  out.count = tarvik::LogEntryLbas(log, page.data(), DriveLogPageBytes, index, out.lbas);
  return out;
}

TEST(DriveLogs, EachLogNamesTheLbaOfEveryEntryFromItsOwnBytes) {
  const Page page = patterned_page();
  const struct {
    DriveLog log;
    size_t entries, entry_bytes;
    std::initializer_list<size_t> lba;
    bool lba28;
  } layouts[] = {
      {DriveLog::SummaryError, 5, 90, {65, 66, 67}, true},
      {DriveLog::ComprehensiveError, 5, 90, {65, 66, 67}, true},
      {DriveLog::SelfTest, 21, 24, {7, 8, 9}, true},
      {DriveLog::ExtSelfTest, 19, 26, {9, 10, 11, 12, 13, 14}, false},
  };
  for (const auto& l : layouts) {
    ASSERT_EQ(tarvik::LogEntriesPerPage(l.log), l.entries);
    for (size_t i = 0; i < l.entries; ++i) {
      const EntryLba got = lbas_of(l.log, page, i);
      ASSERT_EQ(got.count, 1u);
      EXPECT_EQ(got.lbas[0], bytes_at(page, l.entry_bytes * i, l.lba, l.lba28)) << int(l.log) << ", entry " << i;
    }
  }
  ASSERT_EQ(tarvik::LogEntriesPerPage(DriveLog::ExtComprehensiveError), 4u);
  for (size_t i = 0; i < 4; ++i) {
    const EntryLba got = lbas_of(DriveLog::ExtComprehensiveError, page, i);
    ASSERT_EQ(got.count, 2u);
    // Register order: each register's current byte, then its previous one.
    EXPECT_EQ(got.lbas[0], bytes_at(page, 124 * i, {98, 100, 102, 99, 101, 103})) << "entry " << i;
    EXPECT_EQ(got.lbas[1], bytes_at(page, 124 * i, {98, 99, 100, 101, 102, 103})) << "entry " << i;
  }
}

// Short pages, entries past a page's last and garbled directories are the
// drive-log fuzz replays' to check, a log buffer that could not be had the
// same replays' failing pool allocations.
TEST(DriveLogs, DirectoryGivesTheWordAtTwiceTheAddressOnlyForVersionOne) {
  Page directory(DriveLogPageBytes, 0);
  directory[0] = 0x01;
  directory[2 * 0x07] = 0x34;
  directory[2 * 0x07 + 1] = 0x12;
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x07), 0x1234);
  // Address 0 is the directory itself, which describes no count.
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x00), -1);
  directory[1] = 0x07;  // the second byte of the version word is not looked at
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x07), 0x1234);
  directory[0] = 0x02;
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x07), -1);
}

}  // namespace
