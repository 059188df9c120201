#include "storage/ata_drive_operations.h"

#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/ata_definitions.h"
#include "storage/smart_attributes.h"
#include "storage/targeted_read.h"

namespace tarvik {
namespace {

// High nibble of the self-test execution status.
constexpr UINT8 SelfTestPassed = 0x0;
constexpr UINT8 SelfTestInProgress = 0xF;
constexpr UINT8 DriveSelfTestCount = 4;  // the sector count the vendor's drive self-test is started with

StorageDevice& DeviceOf(VOID* Context) { return *static_cast<StorageDevice*>(Context); }

// The outcome of a command other than a read: done, refused by the drive, or unanswered.
DriveOutcome CommandOutcome(const StorageDevice& Device, bool Done) {
  if (Done) return DriveOutcome::Passed;
  return DriveAnswered(Device) ? DriveOutcome::Refused : DriveOutcome::NoAnswer;
}

DriveOutcome VerifyRange(VOID* Context, UINT64 Lba, UINT32 Blocks) {
  StorageDevice& Device = DeviceOf(Context);
  if (!EFI_ERROR(AtaReadVerify(&Device, Lba, Blocks))) return DriveOutcome::Passed;
  return DriveAnswered(Device) ? DriveOutcome::Unreadable : DriveOutcome::NoAnswer;
}

DriveOutcome StartSelfTest(VOID* Context, UINT8 Subcommand) {
  StorageDevice& Device = DeviceOf(Context);
  const UINT8 Count = Subcommand == ata::OfflineDriveSelfTest ? DriveSelfTestCount : 0;
  return CommandOutcome(Device, CommandSucceeded(SmartExecuteOffline(&Device, Subcommand, Count)));
}

SelfTestPoll PollSelfTest(VOID* Context) {
  StorageDevice& Device = DeviceOf(Context);
  if (!CommandSucceeded(SmartReadData(&Device))) return {CommandOutcome(Device, false)};
  const UINT8 Status = static_cast<const SmartData*>(Device.DataBuffer)->SelfTestExecutionStatus;
  if (Status >> 4 == SelfTestInProgress) {
    // Low nibble: tenths of the work left (a drive may claim up to 15).
    const UINT8 TenthsLeft = Status & 0x0F;
    return {DriveOutcome::Running, static_cast<UINT8>(TenthsLeft > 9 ? 9 : 99 - 10 * TenthsLeft)};
  }
  return {Status >> 4 == SelfTestPassed ? DriveOutcome::Passed : DriveOutcome::Unreadable};
}

DriveOutcome AbortSelfTest(VOID* Context) {
  StorageDevice& Device = DeviceOf(Context);
  return CommandOutcome(Device, SmartExecuteOffline(&Device, ata::OfflineAbortSelfTest, 0) == 0);
}

HealthVerdict ReadHealth(VOID* Context) {
  StorageDevice& Device = DeviceOf(Context);
  if (!CommandSucceeded(SmartReturnStatus(&Device)))
    return DriveAnswered(Device) ? HealthVerdict::NotOffered : HealthVerdict::NoAnswer;
  const EFI_ATA_STATUS_BLOCK* Registers = Device.LastPacket != nullptr ? Device.LastPacket->Asb : Device.StatusBlock;
  const bool Exceeded =
      Registers->AtaCylinderLow == ata::SmartExceededLow && Registers->AtaCylinderHigh == ata::SmartExceededHigh;
  return Exceeded ? HealthVerdict::Failing : HealthVerdict::Good;
}

DriveOutcome ListLoggedLbas(VOID* Context, DriveRun& Run, LbaList& Lbas) {
  return ListLogCandidates(Run, DeviceOf(Context), Lbas);
}

}  // namespace

DriveOperations AtaDriveOperations(StorageDevice& Device, UINT32 SectorsPerCommand) {
  return {&Device,       Device.Info != nullptr ? Device.Info->TotalSectors : 0,
          SectorsPerCommand, VerifyRange, StartSelfTest, PollSelfTest, AbortSelfTest, ReadHealth, ListLoggedLbas};
}

}  // namespace tarvik
