#include "badsector/surface_scan.h"

#include "core/globals.h"
#include "storage/ata_commands.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_definitions.h"

namespace tarvik {
namespace {

// Sectors per READ VERIFY: the most one 48-bit command takes; a drive of the
// 28-bit form is verified 16 sectors at a time.
constexpr UINT64 ChunkSectors48 = ata::MaxCount48;
constexpr UINT64 ChunkSectors28 = 16;

// The pause after each uncorrectable sector, so that its line can be read.
constexpr UINTN CheckPauseMicroseconds = 100 * 1000;
constexpr UINTN RecoverPauseMicroseconds = 1000 * 1000;

VOID LogScanFailure(BadSectorsTool& Tool, EFI_STATUS Status) {
  ToolLine(Tool.Run, ToolLineChars, u"%s", Tool.Text(tool_text::NotUncorrectable));
  ToolLine(Tool.Run, ToolLineChars, u"%s %r", Tool.Text(tool_text::CannotContinue), Status);
}

}  // namespace

bool ReportedUncorrectable(const StorageDevice& Device) {
  return Device.StatusBlock != nullptr && (Device.StatusBlock->AtaError & ata::ErrorUncorrectable) != 0;
}

ScanOutcome SurfaceScan(BadSectorsTool& Tool, StorageDevice& Device, LbaList* BadList) {
  ToolRun& Run = Tool.Run;
  ScanOutcome Outcome{0, 0, false};
  const UINT64 Total = Device.Info->TotalSectors;
  const UINT64 Chunk = Device.Info->Lba48 != 0 ? ChunkSectors48 : ChunkSectors28;
  Run.ReportProgress(0);

  UINT64 Lba = 0;
  while (Lba < Total && Run.Running()) {
    const UINT64 Count = Total - Lba < Chunk ? Total - Lba : Chunk;
    Run.ToolRangeStart = Lba;
    Run.ToolRangeEnd = Lba + Count;
    const EFI_STATUS Status = AtaReadVerify(&Device, Lba, static_cast<UINT32>(Count));
    if (Status == EFI_SUCCESS) {
      Lba += Count;
    } else {
      const UINT64 Failing = FailingLba(&Device);
      // A failing sector outside the chunk cannot be this command's: the
      // report is not to be trusted, and nothing is rewritten on its word.
      if (!ReportedUncorrectable(Device) || Failing < Lba || Failing - Lba >= Count) {
        LogScanFailure(Tool, Status);
        Outcome.Unanswered = !DriveAnswered(Device);
        break;
      }
      ++Outcome.Bad;
      ToolLine(Run, ToolLineChars, u"%s #%03d %s %ld", Tool.Text(tool_text::Error), static_cast<UINT32>(Outcome.Bad),
               Tool.Text(tool_text::InSector), Failing);
      if (BadList != nullptr && EFI_ERROR(BadList->Add(Failing))) ++Outcome.Unlisted;
      gBS->Stall(BadList != nullptr ? RecoverPauseMicroseconds : CheckPauseMicroseconds);
      Lba = Failing + 1;
    }
    Run.ReportProgress(Lba * 100 / Total);
  }
  return Outcome;
}

}  // namespace tarvik
