#include "storage/targeted_read.h"

#include "core/globals.h"
#include "drives/range_scan.h"
#include "registry/module_protocol.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/ata_drive_operations.h"
#include "storage/io_pages.h"

namespace tarvik {
namespace {

constexpr UINTN LogPageStallMicroseconds = 10000;
constexpr UINT64 SectorsBeforeCandidate = 31;
constexpr UINT64 SectorsAroundCandidate = 62;  // 31 before, the candidate, 30 after
constexpr UINT64 ReadErrorLimit = 5;
constexpr UINT64 CollectedPercent = 50;

struct LogReader {
  DriveLog Log;
  UINT64 ProgressBefore;
};
constexpr LogReader LogReaders[] = {
    {DriveLog::SummaryError, 5},  {DriveLog::ComprehensiveError, 10}, {DriveLog::ExtComprehensiveError, 20},
    {DriveLog::SelfTest, 30},     {DriveLog::ExtSelfTest, 40},
};
constexpr UINTN LogReaderCount = sizeof(LogReaders) / sizeof(LogReaders[0]);

// The general-purpose logs are read with READ LOG EXT, the others with SMART
// READ LOG.
constexpr bool IsGeneralPurpose(DriveLog Log) {
  return Log == DriveLog::ExtComprehensiveError || Log == DriveLog::ExtSelfTest;
}

UINT64 ReadLog(StorageDevice& Device, DriveLog Log, UINT16 Pages) {
  const UINT8 Address = static_cast<UINT8>(Log);
  if (IsGeneralPurpose(Log)) return AtaReadLogExt(&Device, Address, Pages);
  return SmartReadLog(&Device, Address, static_cast<UINT8>(Pages));
}

// The page count one directory gives; Silent is set when the drive did not
// answer the directory read.
INT16 DirectoryCount(StorageDevice& Device, bool GeneralPurpose, DriveLog Log, bool& Silent) {
  const UINT64 Status = GeneralPurpose ? AtaReadLogExt(&Device, static_cast<UINT8>(DriveLog::Directory), 1)
                                       : SmartReadLog(&Device, static_cast<UINT8>(DriveLog::Directory), 1);
  if (!CommandSucceeded(Status)) {
    Silent = Silent || !DriveAnswered(Device);
    return -1;
  }
  return DirectoryPageCount(static_cast<const UINT8*>(Device.LogBuffer), DriveLogPageBytes, static_cast<UINT8>(Log));
}

INT16 PageCount(StorageDevice& Device, DriveLog Log, bool& Silent) {
  LogBufferPages Page(&Device, DriveLogPageBytes);
  if (!Page) return -1;
  const INT16 Smart = DirectoryCount(Device, false, Log, Silent);
  if (Silent) return -1;  // a drive that stopped answering gets no further command
  const INT16 General = DirectoryCount(Device, true, Log, Silent);
  return Smart > General ? Smart : General;
}

// Adds the LBAs of every entry of every page, while the run goes on.
UINT64 CollectEntries(DriveRun& Run, const StorageDevice& Device, DriveLog Log, const UINT8* Pages, UINT64 PageCount,
                      LbaList& List) {
  const UINT64 Sectors = Device.Info->TotalSectors;
  for (UINT64 Page = 0; Page < PageCount && Run.KeepRunning(); ++Page) {
    gBS->Stall(LogPageStallMicroseconds);
    const UINT8* Bytes = Pages + Page * DriveLogPageBytes;
    for (UINTN Entry = 0; Entry < LogEntriesPerPage(Log) && Run.KeepRunning(); ++Entry) {
      UINT64 Lbas[MaxLbasPerLogEntry];
      const UINTN Count = LogEntryLbas(Log, Bytes, DriveLogPageBytes, Entry, Lbas);
      for (UINTN K = 0; K < Count; ++K)
        if (Lbas[K] < Sectors && EFI_ERROR(List.Add(Lbas[K]))) return ATA_COMMAND_FAILED;
    }
  }
  return EFI_SUCCESS;
}

// What the read around a candidate tells the shared scan: a candidate below
// 31 has no range (its window would start before LBA 0); every failed read
// counts, also one of a sector already listed, and the fifth ends the
// reading.
class CandidateReport {
 public:
  CandidateReport(StorageRun& Run, LbaList& Errors) : Run_(Run), Errors_(Errors) {}
  bool KeepRunning() const { return Run_.KeepRunning(); }
  void Progress(UINT64) {}
  bool Unreadable(UINT64 Lba) {
    ++FailedReads_;
    if (!EFI_ERROR(Errors_.Add(Lba))) ++ErrorCount_;
    return ErrorCount_ < ReadErrorLimit;
  }
  bool Reading(UINT64 Lba, UINT64, UINT64, BlockWindow) const { return Lba >= SectorsBeforeCandidate; }
  void Read(UINT64 Done, UINT64 Count) {
    Run_.ReportProgress(CollectedPercent + (100 - CollectedPercent) * Done / Count);
  }
  UINT64 FailedReads() const { return FailedReads_; }

 private:
  StorageRun& Run_;
  LbaList& Errors_;
  UINT64 FailedReads_ = 0;
  UINT64 ErrorCount_ = 0;
};

// The drive stopped answering: the test fails with the line that says so.
UINT64 Silent(StorageRun& Run) {
  Run.LogKey(LineError, KeyCommunicationFailure);
  return Run.Finish(TEST_RESULT_FAILED);
}

}  // namespace

INT16 GetLogPageCount(StorageDevice& Device, DriveLog Log) {
  bool Silent = false;
  return PageCount(Device, Log, Silent);
}

UINT64 ReadLogCandidates(DriveRun& Run, StorageDevice& Device, DriveLog Log, LbaList& List) {
  bool Silent = false;
  const INT8 Pages = static_cast<INT8>(PageCount(Device, Log, Silent));
  if (Silent) return LogReaderNoAnswer;
  if (Pages < 1) return EFI_SUCCESS;
  LogBufferPages Buffer(&Device, static_cast<UINTN>(Pages) * DriveLogPageBytes);
  if (!Buffer) return EFI_OUT_OF_RESOURCES;
  const UINT64 Status = ReadLog(Device, Log, static_cast<UINT16>(Pages));
  if (!CommandSucceeded(Status)) return DriveAnswered(Device) ? Status : LogReaderNoAnswer;
  return CollectEntries(Run, Device, Log, static_cast<const UINT8*>(Buffer.get()), static_cast<UINT64>(Pages), List);
}

DriveOutcome ListLogCandidates(DriveRun& Run, StorageDevice& Device, LbaList& List) {
  UINTN FailedReaders = 0;
  for (const LogReader& Reader : LogReaders) {
    Run.ReportProgress(Reader.ProgressBefore);
    const UINT64 Status = ReadLogCandidates(Run, Device, Reader.Log, List);
    if (Status == LogReaderNoAnswer) return DriveOutcome::NoAnswer;
    if (!CommandSucceeded(Status)) ++FailedReaders;
  }
  return FailedReaders < LogReaderCount ? DriveOutcome::Passed : DriveOutcome::Refused;
}

UINT64 TargetedReadTest(StorageRun& Run, StorageDevice& Device) {
  if (Device.Info->SmartSupported == 0) {
    Run.LogKey(LineWarning, KeySmartNotSupported);
    return TEST_RESULT_NOT_SUPPORTED;
  }
  if (!HasCapacity(Run, Device)) return TEST_RESULT_NOT_SUPPORTED;
  if (!EnableSmartIfNeeded(Run, Device, LineWarning))
    return DriveAnswered(Device) ? TEST_RESULT_PLATFORM_ERROR : TEST_RESULT_FAILED;

  const DriveOperations Drive = AtaDriveOperations(Device, 1);
  LbaList Candidates;
  const DriveOutcome Listed = Drive.ListLoggedLbas(Drive.Context, Run, Candidates);
  if (Listed == DriveOutcome::NoAnswer) return Silent(Run);
  Run.ReportProgress(CollectedPercent);
  if (!Run.KeepRunning()) return Run.Finish(TEST_RESULT_CANCELED);
  if (Candidates.Empty()) {
    // Nothing to aim at: the test could not run, which is not a pass.
    if (Listed != DriveOutcome::Refused) Run.LogKey(LineWarning, KeyCantPerformTest);
    return TEST_RESULT_NOT_SUPPORTED;
  }

  LbaList Errors;
  CandidateReport Report(Run, Errors);
  const UINT64 After = SectorsAroundCandidate - SectorsBeforeCandidate - 1;
  if (ReadAroundLogged(Drive, Candidates, SectorsBeforeCandidate, After, Report) == ScanEnd::NoAnswer)
    return Silent(Run);
  Errors.ForEach([&](UINT64 Lba) { Run.LogReadError(Lba); });
  Run.ReportProgress(100);
  if (!Run.KeepRunning()) return TEST_RESULT_CANCELED;
  return Report.FailedReads() == 0 ? TEST_RESULT_PASSED : TEST_RESULT_FAILED;
}

}  // namespace tarvik
