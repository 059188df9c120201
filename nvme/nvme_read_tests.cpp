#include "drives/random_lba.h"
#include "drives/range_scan.h"
#include "nvme/nvme_drive_operations.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_tests.h"
#include "registry/module_protocol.h"

namespace tarvik {
namespace {

constexpr UINT64 RandomReads = 5000;
constexpr UINT64 BlocksBeforeLogged = 31;  // the 62 blocks around a logged LBA, as on ATA drives
constexpr UINT64 BlocksAfterLogged = 30;
// A scan stops logging (and reading) after this many unreadable blocks: the
// drive has failed plainly enough and each further one costs a retry.
constexpr UINT64 UnreadableLimit = 100;

// Reports a scan's progress as a share of Total blocks, and each unreadable
// block as a log line; Base and Span map the scan into part of 0-100.
class ScanReport {
 public:
  ScanReport(DriveRun& Run, UINT64 Total) : Run_(Run), Total_(Total == 0 ? 1 : Total) {}
  bool KeepRunning() const { return Run_.KeepRunning(); }
  void Progress(UINT64 Done) {
    const UINT64 Percent = Base_ + (Done * Span_) / Total_;
    // Only a grown percentage goes out: a scan reports after every command.
    if (Percent > Run_.Progress && Percent < 100) Run_.ReportProgress(Percent);
  }
  bool Unreadable(UINT64 Lba) {
    Run_.Log(u"ERROR %s %ld", nvme_key::ReadSectorError, Lba);
    return ++Unreadable_ < UnreadableLimit;
  }
  // Each logged block's window takes an equal share of the whole.
  bool Reading(UINT64, UINT64 Index, UINT64 Count, BlockWindow Window) {
    Base_ = Index * 100 / Count;
    Span_ = 100 / Count;
    Total_ = Window.Count == 0 ? 1 : Window.Count;
    return true;
  }
  void Read(UINT64, UINT64) {}
  UINT64 UnreadableCount() const { return Unreadable_; }

 private:
  DriveRun& Run_;
  UINT64 Total_;
  UINT64 Base_ = 0;
  UINT64 Span_ = 100;
  UINT64 Unreadable_ = 0;
};

UINT64 ResultOf(DriveRun& Run, ScanEnd End, const ScanReport& Report) {
  if (End == ScanEnd::NoAnswer) {
    Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
    return TEST_RESULT_FAILED;
  }
  if (Report.UnreadableCount() != 0) return TEST_RESULT_FAILED;
  return Run.KeepRunning() ? TEST_RESULT_PASSED : TEST_RESULT_CANCELED;
}

}  // namespace

UINT64 NvmeRandomReadTest(DriveRun& Run, const NvmeDevice& Device, const DiagCommonProtocol& Common) {
  Run.ReportProgress(0);
  NvmeDriveOperations Drive(Device);
  if (!Drive) return Run.Finish(TEST_RESULT_FAILED);
  SeedRandomFromTime(Common);
  ScanReport Report(Run, RandomReads);
  const DriveOperations& Operations = Drive.Operations();
  ScanEnd End = ScanEnd::Completed;
  for (UINT64 Read = 0; Read < RandomReads && Run.KeepRunning(); ++Read) {
    const UINT64 Lba = RandomUpTo(Common, Device.Namespace.Blocks - 1);
    const DriveOutcome Outcome = Operations.VerifyRange(Operations.Context, Lba, 1);
    if (Outcome == DriveOutcome::NoAnswer) End = ScanEnd::NoAnswer;
    if (Outcome == DriveOutcome::Unreadable) Report.Unreadable(Lba);
    if (Outcome != DriveOutcome::Passed) break;
    Report.Progress(Read + 1);
  }
  return Run.Finish(ResultOf(Run, End, Report));
}

UINT64 NvmeErrorLogReadTest(DriveRun& Run, const NvmeDevice& Device) {
  Run.ReportProgress(0);
  NvmeDriveOperations Drive(Device);
  if (!Drive) return Run.Finish(TEST_RESULT_FAILED);
  LbaList Logged;
  if (Drive.Operations().ListLoggedLbas(Drive.Operations().Context, Run, Logged) == DriveOutcome::NoAnswer) {
    Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
    return Run.Finish(TEST_RESULT_FAILED);
  }
  if (Logged.Empty()) {
    Run.Log(u"WARNING %s", nvme_key::NoLoggedLbas);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  ScanReport Report(Run, 1);
  const ScanEnd End = ReadAroundLogged(Drive.Operations(), Logged, BlocksBeforeLogged, BlocksAfterLogged, Report);
  return Run.Finish(ResultOf(Run, End, Report));
}

UINT64 NvmeFullReadScan(DriveRun& Run, const NvmeDevice& Device) {
  Run.ReportProgress(0);
  NvmeDriveOperations Drive(Device);
  if (!Drive) return Run.Finish(TEST_RESULT_FAILED);
  ScanReport Report(Run, Device.Namespace.Blocks);
  const ScanEnd End = ScanRange(Drive.Operations(), 0, Device.Namespace.Blocks, Report);
  return Run.Finish(ResultOf(Run, End, Report));
}

}  // namespace tarvik
