#include "storage/algorithm_steps.h"

#include "storage/ata_commands.h"
#include "storage/ata_definitions.h"

namespace tarvik {

bool CommandSucceeded(UINT64 Status) { return Status != ATA_COMMAND_FAILED && !EFI_ERROR(Status); }

bool DriveAnswered(const StorageDevice& Device) {
  const EFI_ATA_STATUS_BLOCK* Registers = Device.StatusBlock;
  return Registers != nullptr && ((Registers->AtaStatus & ata::StatusError) != 0 || Registers->AtaError != 0);
}

bool NoteSilentDrive(StorageRun& Run, const StorageDevice& Device) {
  if (DriveAnswered(Device)) return false;
  Run.LogKey(LineError, KeyCommunicationFailure);
  return true;
}

bool HasCapacity(StorageRun& Run, const StorageDevice& Device) {
  if (Device.Info->TotalSectors != 0) return true;
  Run.LogKey(LineWarning, KeyCantPerformTest);
  return false;
}

bool EnableSmartIfNeeded(StorageRun& Run, StorageDevice& Device, const CHAR16* DisabledFormat) {
  if (Device.Info->SmartEnabled != 0) return true;
  Run.LogKey(DisabledFormat, KeySmartDisabled);
  Run.LogKey(LineMessage, KeyEnablingSmart);
  if (!CommandSucceeded(SmartEnableOperations(&Device))) {
    Run.LogKey(LineWarning, KeyCantEnableSmart);
    NoteSilentDrive(Run, Device);
    return false;
  }
  Run.SmartEnabledByTest = 1;
  return true;
}

}  // namespace tarvik
