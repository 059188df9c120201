#include "badsector/sector_repair.h"

#include "badsector/repair_pattern.h"
#include "badsector/surface_scan.h"
#include "core/raised_tpl.h"
#include "registry/module_protocol.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/io_pages.h"
#include "drives/lba_list.h"

namespace tarvik {
namespace {

struct RepairTally {
  UINT64 Repaired;
  UINT64 Remaining;  // sectors still unreadable after the repair
};

// The drive stopped completing commands: nothing more is written to it, and
// the Left sectors not tried count as remaining.
VOID NoteUnansweredDrive(ToolRun& Run, UINT64 Left, RepairTally& Tally) {
  ToolLine(Run, ToolLineChars, u"The drive does not answer: nothing more is written to it.");
  Tally.Remaining += Left;
}

enum class SectorOutcome { Repaired, ReadsWell, Failed };

// Reads the sector alone first: the scan's report may name a sector that
// reads (firmware that leaves the LBA registers zero reports every error at
// LBA 0), and a sector that reads holds the user's data. Only a sector that
// fails this read with an uncorrectable error is written.
SectorOutcome RepairSector(BadSectorsTool& Tool, StorageDevice& Device, UINT64 Lba, VOID* Sector, UINT32 SectorBytes) {
  ToolRun& Run = Tool.Run;
  const EFI_STATUS Check = AtaReadVerify(&Device, Lba, 1);
  if (Check == EFI_SUCCESS) {
    ToolLine(Run, ToolLineChars, u"%s %ld %s", Tool.Text(tool_text::Sector), Lba, u"reads well: not written");
    return SectorOutcome::ReadsWell;
  }
  if (!ReportedUncorrectable(Device)) {
    ToolLine(Run, ToolLineChars, u"%s %ld %s (%r)", Tool.Text(tool_text::Sector), Lba,
             u"cannot be checked: not written", Check);
    return SectorOutcome::Failed;
  }
  ToolLine(Run, ToolLineChars, u"%s %ld", Tool.Text(tool_text::TryingToRepair), Lba);
  const bool Written = AtaWriteSector(&Device, Lba, Sector, SectorBytes) == EFI_SUCCESS;
  if (Written && AtaReadVerify(&Device, Lba, 1) == EFI_SUCCESS) {
    ToolLine(Run, ToolLineChars, u"%s %ld", Tool.Text(tool_text::CorrectedSector), Lba);
    return SectorOutcome::Repaired;
  }
  ToolLine(Run, ToolLineChars, u"%s %ld %s", Tool.Text(tool_text::Sector), Lba,
           Tool.Text(Written ? tool_text::CannotBeRecovered : tool_text::CannotBeWritten));
  return SectorOutcome::Failed;
}

// Repairs the sectors of BadList, newest first, one sector per command, and
// empties the list. Nothing but these sectors is written: they are the ones
// this run's scan found uncorrectable, and each is read again just before.
VOID RepairBadSectors(BadSectorsTool& Tool, StorageDevice& Device, LbaList& BadList, RepairTally& Tally) {
  ToolRun& Run = Tool.Run;
  const UINT32 SectorBytes = Device.Info->LogicalSectorSize;
  IoPages Sector(&Device, SectorBytes);
  if (!Sector) {
    ToolLine(Run, ToolLineChars, u"Cannot allocate the sector buffer (%r): nothing was written.",
             EFI_OUT_OF_RESOURCES);
    Tally.Remaining += BadList.Count();
    return;
  }
  FillRepairPattern(static_cast<UINT8*>(Sector.get()), SectorBytes);

  // No key poll, spinner or clock may run between a check, a write and its
  // read-back.
  RaisedTpl Notify(TPL_NOTIFY);
  for (; !BadList.Empty() && Run.Running(); BadList.PopFront()) {
    const SectorOutcome Outcome = RepairSector(Tool, Device, BadList.Front(), Sector.get(), SectorBytes);
    if (Outcome == SectorOutcome::Repaired) ++Tally.Repaired;
    if (Outcome != SectorOutcome::Failed) continue;
    ++Tally.Remaining;
    if (!DriveAnswered(Device)) {
      // Every further command would wait out its timeout with the screen
      // frozen at this priority; what is left stays as it is.
      BadList.PopFront();
      NoteUnansweredDrive(Run, BadList.Count(), Tally);
      return;
    }
  }
}

VOID LogSummary(BadSectorsTool& Tool, UINT64 Bad, const RepairTally& Tally) {
  ToolRun& Run = Tool.Run;
  if (Bad > 0) ToolLine(Run, ToolLineChars, u"# %s %d #", Tool.Text(tool_text::BadSectorsFound), static_cast<UINT32>(Bad));
  if (Tally.Repaired > 0)
    ToolLine(Run, ToolLineChars, u"# %s %d #", Tool.Text(tool_text::SectorsRecovered), static_cast<UINT32>(Tally.Repaired));
  if (Tally.Remaining > 0)
    ToolLine(Run, ToolLineChars, u"# %d %s #", static_cast<UINT32>(Tally.Remaining), Tool.Text(tool_text::SectorsRemain));
  if (!Run.Running()) ToolLine(Run, ToolLineChars, u"%s", Tool.Text(tool_text::CanceledByUser));
}

}  // namespace

UINT64 CheckAndRecoverBadSectors(BadSectorsTool& Tool, StorageDevice& Device) {
  ToolRun& Run = Tool.Run;
  LbaList BadList;
  const ScanOutcome Scan = SurfaceScan(Tool, Device, &BadList);
  RepairTally Tally{0, 0};
  if (Run.Running() && Scan.Bad > 0 && Scan.Unanswered) {
    // A drive that stopped answering is not offered a repair.
    NoteUnansweredDrive(Run, Scan.Bad, Tally);
  } else if (Run.Running() && Scan.Bad > 0) {
    if (!Run.Ask(Tool.Text(tool_text::AttemptRecovery), ToolMessageKind::Question)) {
      Run.Cancel();
    } else {
      ToolLine(Run, ToolLineChars, u"# %s = %d #", Tool.Text(tool_text::BadSectorsFound), static_cast<UINT32>(Scan.Bad));
      // Sectors the list had no room for are as bad as the others.
      Tally.Remaining = Scan.Unlisted;
      RepairBadSectors(Tool, Device, BadList, Tally);
    }
  } else if (Run.Running()) {
    ToolLine(Run, ToolLineChars, u"# %s #", Tool.Text(tool_text::NoBadSectorFound));
  }
  LogSummary(Tool, Scan.Bad, Tally);
  if (!Run.Running()) return TEST_RESULT_CANCELED;
  return Tally.Remaining == 0 ? TEST_RESULT_PASSED : TEST_RESULT_FAILED;
}

}  // namespace tarvik
