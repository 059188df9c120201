#include "storage/ata_drive_operations.h"

#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"

namespace tarvik {
namespace {

DriveOutcome VerifyRange(VOID* Context, UINT64 Lba, UINT32 Blocks) {
  StorageDevice& Device = *static_cast<StorageDevice*>(Context);
  if (!EFI_ERROR(AtaReadVerify(&Device, Lba, Blocks))) return DriveOutcome::Passed;
  return DriveAnswered(Device) ? DriveOutcome::Unreadable : DriveOutcome::NoAnswer;
}

}  // namespace

DriveOperations AtaDriveOperations(StorageDevice& Device, UINT32 SectorsPerCommand) {
  return {&Device, Device.Info != nullptr ? Device.Info->TotalSectors : 0, SectorsPerCommand, VerifyRange};
}

}  // namespace tarvik
