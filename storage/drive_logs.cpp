#include "storage/drive_logs.h"

namespace tarvik {
namespace {

template <UINTN N>
UINT64 LittleEndian(const UINT8 (&Bytes)[N]) {
  UINT64 Value = 0;
  for (UINTN I = N; I > 0; --I) Value = Value << 8 | Bytes[I - 1];
  return Value;
}

UINT64 Lba28(UINT8 Low, UINT8 Mid, UINT8 High, UINT8 Top) {
  return (UINT64)Low | (UINT64)Mid << 8 | (UINT64)High << 16 | (UINT64)(Top & 0x0F) << 24;
}

template <typename PageLayout, typename Entry>
constexpr UINTN EntriesOf = sizeof(PageLayout::Entries) / sizeof(Entry);

// Entry Index of a page laid out as PageLayout, copied out of the buffer and
// handed to Read; 0 LBAs when the buffer holds no whole page or no such entry.
template <typename PageLayout, typename Entry, typename EntryLbas>
UINTN EntryOf(const UINT8* Page, UINTN Bytes, UINTN Index, UINT64 (&Lbas)[MaxLbasPerLogEntry], EntryLbas Read) {
  if (Page == nullptr || Bytes < sizeof(PageLayout) || Index >= EntriesOf<PageLayout, Entry>) return 0;
  Entry Copy;
  __builtin_memcpy(&Copy, Page + __builtin_offsetof(PageLayout, Entries) + Index * sizeof(Entry), sizeof(Entry));
  return Read(Copy, Lbas);
}

}  // namespace

INT16 DirectoryPageCount(const UINT8* Page, UINTN Bytes, UINT8 LogAddress) {
  if (Page == nullptr || Bytes < sizeof(LogDirectoryPage) || LogAddress == 0) return -1;
  LogDirectoryPage Directory;
  __builtin_memcpy(&Directory, Page, sizeof(Directory));
  if (Directory.Version != 1) return -1;
  return (INT16)Directory.PageCount[LogAddress - 1];
}

UINTN LogEntriesPerPage(DriveLog Log) {
  switch (Log) {
    case DriveLog::SummaryError:
    case DriveLog::ComprehensiveError: return EntriesOf<SmartErrorLogPage, SmartErrorLogEntry>;
    case DriveLog::ExtComprehensiveError: return EntriesOf<ExtErrorLogPage, ExtErrorLogEntry>;
    case DriveLog::SelfTest: return EntriesOf<SelfTestLogPage, SelfTestLogEntry>;
    case DriveLog::ExtSelfTest: return EntriesOf<ExtSelfTestLogPage, ExtSelfTestLogEntry>;
    case DriveLog::Directory: break;
  }
  return 0;
}

UINTN LogEntryLbas(DriveLog Log, const UINT8* Page, UINTN Bytes, UINTN Index, UINT64 (&Lbas)[MaxLbasPerLogEntry]) {
  switch (Log) {
    case DriveLog::SummaryError:
    case DriveLog::ComprehensiveError:
      return EntryOf<SmartErrorLogPage, SmartErrorLogEntry>(Page, Bytes, Index, Lbas, [](const SmartErrorLogEntry& E, auto& Out) {
        Out[0] = Lba28(E.LbaLow, E.LbaMid, E.LbaHigh, E.DeviceHead);
        return UINTN{1};
      });
    case DriveLog::ExtComprehensiveError:
      return EntryOf<ExtErrorLogPage, ExtErrorLogEntry>(Page, Bytes, Index, Lbas, [](const ExtErrorLogEntry& E, auto& Out) {
        // Register order (current, then previous content of each register) ...
        Out[0] = (UINT64)E.Lba[0] | (UINT64)E.Lba[2] << 8 | (UINT64)E.Lba[4] << 16 | (UINT64)E.Lba[1] << 24 |
                 (UINT64)E.Lba[3] << 32 | (UINT64)E.Lba[5] << 40;
        // ... and plain byte order, as some drives write it.
        Out[1] = LittleEndian(E.Lba);
        return UINTN{2};
      });
    case DriveLog::SelfTest:
      return EntryOf<SelfTestLogPage, SelfTestLogEntry>(Page, Bytes, Index, Lbas, [](const SelfTestLogEntry& E, auto& Out) {
        Out[0] = Lba28(E.FailingLba[0], E.FailingLba[1], E.FailingLba[2], E.FailingLba[3]);
        return UINTN{1};
      });
    case DriveLog::ExtSelfTest:
      return EntryOf<ExtSelfTestLogPage, ExtSelfTestLogEntry>(Page, Bytes, Index, Lbas, [](const ExtSelfTestLogEntry& E, auto& Out) {
        Out[0] = LittleEndian(E.FailingLba);
        return UINTN{1};
      });
    case DriveLog::Directory: break;
  }
  return 0;
}

}  // namespace tarvik
