#include "storage/seek_tests.h"

#include "registry/module_protocol.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "drives/random_lba.h"

namespace tarvik {
namespace {

constexpr UINT64 RandomSeekReads = 5000;
constexpr UINT32 FunnelLeadSectors = 100;

// 0.07 % of the drive, at least one sector so that a small drive still ends;
// computed without overflow whatever capacity IDENTIFY claims.
UINT64 FunnelStep(UINT64 Last) {
  const UINT64 Step = Last / 10000 * 7 + Last % 10000 * 7 / 10000;
  return Step > 0 ? Step : 1;
}

UINT64 PercentOf(UINT64 Done, UINT64 Whole) {
  if (Done >= Whole) return 100;
  return Whole <= ~0ULL / 100 ? Done * 100 / Whole : Done / (Whole / 100);
}

// Reads Count sectors at Lba; false (with the line logged and progress at
// 100) when they do not read.
bool ReadsBack(StorageRun& Run, StorageDevice& Device, UINT64 Lba, UINT32 Count = 1) {
  if (!EFI_ERROR(AtaReadVerify(&Device, Lba, Count))) return true;
  Run.ReportProgress(100);
  if (!NoteSilentDrive(Run, Device)) Run.LogReadError(Lba);
  return false;
}

}  // namespace

UINT64 RandomSeekTest(StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common) {
  Run.ReportProgress(0);
  if (!HasCapacity(Run, Device)) return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  SeedRandomFromTime(Common);
  const UINT64 LastLba = Device.Info->TotalSectors - 1;
  for (UINT64 Read = 0; Read < RandomSeekReads; ++Read) {
    if (!Run.KeepRunning()) return Run.Finish(TEST_RESULT_CANCELED);
    const UINT64 Lba = RandomUpTo(Common, LastLba);
    if (!ReadsBack(Run, Device, Lba)) return TEST_RESULT_FAILED;
    Run.ReportProgress(Read * 100 / RandomSeekReads);
  }
  return Run.Finish(TEST_RESULT_PASSED);
}

UINT64 FunnelSeekTest(StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common) {
  Run.ReportProgress(0);
  if (!HasCapacity(Run, Device)) return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  SeedRandomFromTime(Common);
  const UINT64 Total = Device.Info->TotalSectors;
  if (!ReadsBack(Run, Device, 0, Total < FunnelLeadSectors ? (UINT32)Total : FunnelLeadSectors)) return TEST_RESULT_FAILED;

  const UINT64 Last = Total - 1;
  const UINT64 Step = FunnelStep(Last);
  for (UINT64 Low = 0; Last > 0 && Low < Last;) {
    if (!Run.KeepRunning()) return Run.Finish(TEST_RESULT_CANCELED);
    if (!ReadsBack(Run, Device, Low)) return TEST_RESULT_FAILED;
    const UINT64 High = Last - Low;
    if (High < Last && !ReadsBack(Run, Device, High)) return TEST_RESULT_FAILED;
    const UINT64 Advance = Step + RandomUpTo(Common, Step);
    Low = Advance > Last - Low ? Last : Low + Advance;
    Run.ReportProgress(PercentOf(Low, Last));
  }
  if (!Run.KeepRunning()) return Run.Finish(TEST_RESULT_CANCELED);
  if (!ReadsBack(Run, Device, Last)) return TEST_RESULT_FAILED;
  if (!ReadsBack(Run, Device, 0)) return TEST_RESULT_FAILED;
  return Run.Finish(TEST_RESULT_PASSED);
}

}  // namespace tarvik
