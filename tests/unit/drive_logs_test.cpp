// The drive log layouts on crafted pages: where each log keeps the LBA of
// every entry, the directories' page counts, and pages that are short,
// garbled or asked for an entry they do not have.
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

uint64_t bytes_at(const Page& page, std::initializer_list<size_t> offsets_low_first) {
  uint64_t value = 0;
  int shift = 0;
  for (size_t offset : offsets_low_first) {
    value |= uint64_t{page[offset]} << shift;
    shift += 8;
  }
  return value;
}

struct EntryLba {
  uint64_t count;
  UINT64 lbas[tarvik::MaxLbasPerLogEntry];
};

EntryLba lbas_of(DriveLog log, const Page& page, size_t index, size_t bytes = DriveLogPageBytes) {
  EntryLba out{};
  out.count = tarvik::LogEntryLbas(log, page.data(), bytes, index, out.lbas);
  return out;
}

TEST(DriveLogs, EachLogNamesTheLbaOfEveryEntryFromItsOwnBytes) {
  const Page page = patterned_page();
  for (DriveLog log : {DriveLog::SummaryError, DriveLog::ComprehensiveError}) {
    ASSERT_EQ(tarvik::LogEntriesPerPage(log), 5u);
    for (size_t i = 0; i < 5; ++i) {
      const size_t e = 90 * i;
      const uint64_t expected = bytes_at(page, {e + 65, e + 66, e + 67}) | uint64_t{page[e + 68] & 0x0Fu} << 24;
      const EntryLba got = lbas_of(log, page, i);
      ASSERT_EQ(got.count, 1u);
      EXPECT_EQ(got.lbas[0], expected) << "entry " << i;
    }
  }
  ASSERT_EQ(tarvik::LogEntriesPerPage(DriveLog::ExtComprehensiveError), 4u);
  for (size_t i = 0; i < 4; ++i) {
    const size_t e = 124 * i;
    const EntryLba got = lbas_of(DriveLog::ExtComprehensiveError, page, i);
    ASSERT_EQ(got.count, 2u);
    // Register order: each register's current byte, then its previous one.
    EXPECT_EQ(got.lbas[0], bytes_at(page, {e + 98, e + 100, e + 102, e + 99, e + 101, e + 103})) << "entry " << i;
    EXPECT_EQ(got.lbas[1], bytes_at(page, {e + 98, e + 99, e + 100, e + 101, e + 102, e + 103})) << "entry " << i;
  }
  ASSERT_EQ(tarvik::LogEntriesPerPage(DriveLog::SelfTest), 21u);
  for (size_t i = 0; i < 21; ++i) {
    const size_t e = 24 * i;
    const uint64_t expected = bytes_at(page, {e + 7, e + 8, e + 9}) | uint64_t{page[e + 10] & 0x0Fu} << 24;
    EXPECT_EQ(lbas_of(DriveLog::SelfTest, page, i).lbas[0], expected) << "entry " << i;
  }
  ASSERT_EQ(tarvik::LogEntriesPerPage(DriveLog::ExtSelfTest), 19u);
  for (size_t i = 0; i < 19; ++i) {
    const size_t e = 26 * i;
    EXPECT_EQ(lbas_of(DriveLog::ExtSelfTest, page, i).lbas[0],
              bytes_at(page, {e + 9, e + 10, e + 11, e + 12, e + 13, e + 14}))
        << "entry " << i;
  }
}

TEST(DriveLogs, ShortBuffersEntriesPastThePageAndTheDirectoryGiveNothing) {
  // Every byte 0xFF: no page says how long it is, so the buffer length rules.
  for (DriveLog log : {DriveLog::SummaryError, DriveLog::ComprehensiveError, DriveLog::ExtComprehensiveError,
                       DriveLog::SelfTest, DriveLog::ExtSelfTest}) {
    const size_t entries = tarvik::LogEntriesPerPage(log);
    // Exactly as long as it claims, so AddressSanitizer sees any read beyond.
    Page short_page(DriveLogPageBytes - 1, 0xFF);
    EXPECT_EQ(lbas_of(log, short_page, 0, short_page.size()).count, 0u);
    const Page full(DriveLogPageBytes, 0xFF);
    EXPECT_EQ(lbas_of(log, full, entries).count, 0u);
    EXPECT_EQ(lbas_of(log, full, SIZE_MAX).count, 0u);
    EntryLba none{};
    EXPECT_EQ(tarvik::LogEntryLbas(log, nullptr, DriveLogPageBytes, 0, none.lbas), 0u);
  }
  EXPECT_EQ(tarvik::LogEntriesPerPage(DriveLog::Directory), 0u);
  EXPECT_EQ(lbas_of(DriveLog::Directory, Page(DriveLogPageBytes, 0xFF), 0).count, 0u);
}

TEST(DriveLogs, DirectoryGivesTheWordAtTwiceTheAddressOnlyForVersionOne) {
  Page directory(DriveLogPageBytes, 0);
  directory[0] = 0x01;
  directory[2 * 0x03] = 0x02;
  directory[2 * 0x06] = 0x01;
  directory[2 * 0x07] = 0x34;
  directory[2 * 0x07 + 1] = 0x12;
  directory[2 * 0xFF] = 0x05;
  directory[2 * 0xFF + 1] = 0x80;
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x03), 2);
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x06), 1);
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x07), 0x1234);
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x01), 0);
  // The last word of the page, taken as a signed count.
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0xFF), static_cast<int16_t>(0x8005));
  // Address 0 is the directory itself, which describes no count.
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x00), -1);

  directory[1] = 0x07;  // the second byte of the version word is not looked at
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x06), 1);
  directory[0] = 0x02;
  EXPECT_EQ(tarvik::DirectoryPageCount(directory.data(), directory.size(), 0x06), -1);
  directory[0] = 0x01;
  Page short_directory(directory.begin(), directory.end() - 1);
  EXPECT_EQ(tarvik::DirectoryPageCount(short_directory.data(), short_directory.size(), 0x06), -1);
  EXPECT_EQ(tarvik::DirectoryPageCount(nullptr, DriveLogPageBytes, 0x06), -1);
}

}  // namespace
