// The drive's own logs that name sectors worth re-reading: the SMART and
// general-purpose log directories, the error logs and the self-test logs, as
// 512-byte pages. Pure functions over byte buffers; whatever a page holds,
// nothing is read outside the buffer the caller names.
#pragma once

#include "efi/base.h"

namespace tarvik {

inline constexpr UINTN DriveLogPageBytes = 512;

// Log addresses the targeted read collects candidates from.
enum class DriveLog : UINT8 {
  Directory = 0x00,
  SummaryError = 0x01,           // SMART READ LOG
  ComprehensiveError = 0x02,     // SMART READ LOG
  ExtComprehensiveError = 0x03,  // READ LOG EXT
  SelfTest = 0x06,               // SMART READ LOG
  ExtSelfTest = 0x07,            // READ LOG EXT
};

// Both log directories: a version word (1) and the page count of every
// other log address, one little-endian word each.
struct [[gnu::packed]] LogDirectoryPage {
  UINT8 Version;
  UINT8 Reserved;
  UINT16 PageCount[255];  // of log address 1 to 255
};
static_assert(sizeof(LogDirectoryPage) == DriveLogPageBytes);

// Logs 0x01 and 0x02: five 28-bit error entries per page.
struct [[gnu::packed]] SmartErrorLogEntry {
  UINT8 CommandData[60];  // the five commands before the error
  UINT8 Reserved;
  UINT8 Error;
  UINT8 Count;
  UINT8 LbaLow;
  UINT8 LbaMid;
  UINT8 LbaHigh;
  UINT8 DeviceHead;  // LBA bits 24-27 in the low nibble
  UINT8 Status;
  UINT8 ExtendedError[19];
  UINT8 State;
  UINT16 LifeTimestamp;
};
static_assert(sizeof(SmartErrorLogEntry) == 90);

struct [[gnu::packed]] SmartErrorLogPage {
  UINT8 Version;
  UINT8 IndexPointer;
  SmartErrorLogEntry Entries[5];
  UINT16 DeviceErrorCount;
  UINT8 Reserved[57];
  UINT8 Checksum;
};
static_assert(sizeof(SmartErrorLogPage) == DriveLogPageBytes);
static_assert(__builtin_offsetof(SmartErrorLogPage, Entries) + __builtin_offsetof(SmartErrorLogEntry, LbaLow) == 65);

// Log 0x03: four 48-bit error entries per page. The LBA registers are kept
// in the order the task file reads them (low, high of each pair).
struct [[gnu::packed]] ExtErrorLogEntry {
  UINT8 CommandData[90];
  UINT8 TransportSpecific;
  UINT8 Error;
  UINT8 Count[2];
  UINT8 Lba[6];
  UINT8 Device;
  UINT8 Status;
  UINT8 ExtendedError[19];
  UINT8 State;
  UINT16 LifeTimestamp;
};
static_assert(sizeof(ExtErrorLogEntry) == 124);

struct [[gnu::packed]] ExtErrorLogPage {
  UINT8 Version;
  UINT8 Reserved;
  UINT16 Index;
  ExtErrorLogEntry Entries[4];
  UINT16 DeviceErrorCount;
  UINT8 Reserved2[9];
  UINT8 Checksum;
};
static_assert(sizeof(ExtErrorLogPage) == DriveLogPageBytes);
static_assert(__builtin_offsetof(ExtErrorLogPage, Entries) + __builtin_offsetof(ExtErrorLogEntry, Lba) == 98);

// Log 0x06: 21 self-test results with a 28-bit failing LBA.
struct [[gnu::packed]] SelfTestLogEntry {
  UINT8 Subcommand;
  UINT8 Status;
  UINT16 LifeTimestamp;
  UINT8 Checkpoint;
  UINT8 FailingLba[4];  // bits 24-27 in the low nibble of the last byte
  UINT8 Vendor[15];
};
static_assert(sizeof(SelfTestLogEntry) == 24);

struct [[gnu::packed]] SelfTestLogPage {
  UINT16 Revision;
  SelfTestLogEntry Entries[21];
  UINT16 Vendor;
  UINT8 Index;
  UINT8 Reserved[2];
  UINT8 Checksum;
};
static_assert(sizeof(SelfTestLogPage) == DriveLogPageBytes);
static_assert(__builtin_offsetof(SelfTestLogPage, Entries) + __builtin_offsetof(SelfTestLogEntry, FailingLba) == 7);

// Log 0x07: 19 self-test results with a 48-bit failing LBA.
struct [[gnu::packed]] ExtSelfTestLogEntry {
  UINT8 Subcommand;
  UINT8 Status;
  UINT16 LifeTimestamp;
  UINT8 Checkpoint;
  UINT8 FailingLba[6];
  UINT8 Vendor[15];
};
static_assert(sizeof(ExtSelfTestLogEntry) == 26);

struct [[gnu::packed]] ExtSelfTestLogPage {
  UINT8 Version;
  UINT8 Reserved;
  UINT16 Index;
  ExtSelfTestLogEntry Entries[19];
  UINT8 Vendor[12];
  UINT8 Reserved2;
  UINT8 Checksum;
};
static_assert(sizeof(ExtSelfTestLogPage) == DriveLogPageBytes);
static_assert(__builtin_offsetof(ExtSelfTestLogPage, Entries) + __builtin_offsetof(ExtSelfTestLogEntry, FailingLba) ==
              9);

// The page count a log directory page gives for LogAddress (1-255); -1 when
// the page is shorter than a directory, its version byte is not 1, or the
// address is 0.
INT16 DirectoryPageCount(const UINT8* Page, UINTN Bytes, UINT8 LogAddress);

// How many entries one page of Log holds; 0 for the directory.
UINTN LogEntriesPerPage(DriveLog Log);

// The most LBAs one entry names (the extended comprehensive error log's
// entries are read two ways).
inline constexpr UINTN MaxLbasPerLogEntry = 2;

// The LBAs that entry Index of one page of Log names, written to Lbas;
// returns how many (0 when Bytes cannot hold a whole page or Index lies past
// the page's entries). An empty entry names LBA 0 like any other.
UINTN LogEntryLbas(DriveLog Log, const UINT8* Page, UINTN Bytes, UINTN Index, UINT64 (&Lbas)[MaxLbasPerLogEntry]);

}  // namespace tarvik
