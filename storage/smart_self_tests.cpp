#include "storage/smart_self_tests.h"

#include "core/periodic_timer.h"
#include "registry/module_protocol.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/ata_definitions.h"
#include "storage/smart_attributes.h"

namespace tarvik {
namespace {

constexpr UINT64 StatusPollPeriod = 1500000;      // 150 ms, in 100 ns units
constexpr UINT64 SelfTestTickPeriod = 10000000;   // 1 s
constexpr UINT64 TicksPerSelfTestPoll = 5;
constexpr UINT64 StatusPolls = 11;                // at 0, 10, ..., 100 percent

// High nibble of the self-test execution status.
constexpr UINT8 SelfTestPassed = 0x0;
constexpr UINT8 SelfTestInProgress = 0xF;

struct SelfTestStart {
  UINT8 Subcommand;
  UINT8 Count;
  UINT64 RefusedResult;  // what a refused start means for the test
};

constexpr SelfTestStart StartOf(SelfTestKind Kind) {
  switch (Kind) {
    case SelfTestKind::Short: return {ata::OfflineShortSelfTest, 0, TEST_RESULT_FAILED};
    case SelfTestKind::Drive: return {ata::OfflineDriveSelfTest, 4, TEST_RESULT_NOT_SUPPORTED};
    case SelfTestKind::Extended: return {ata::OfflineExtendedSelfTest, 0, TEST_RESULT_FAILED};
  }
  return {0, 0, TEST_RESULT_NOT_SUPPORTED};
}

constexpr bool KnownKind(SelfTestKind Kind) {
  return Kind == SelfTestKind::Short || Kind == SelfTestKind::Drive || Kind == SelfTestKind::Extended;
}

UINT64 Finish(StorageRun& Run, UINT64 Result) {
  Run.ReportProgress(100);
  return Result;
}

// The failed result of a command, noting a drive that did not answer.
UINT64 Failed(StorageRun& Run, const StorageDevice& Device) {
  NoteSilentDrive(Run, Device);
  return TEST_RESULT_FAILED;
}

UINT8 ExecutionStatus(const StorageDevice& Device) {
  return static_cast<const SmartData*>(Device.DataBuffer)->SelfTestExecutionStatus;
}

bool ThresholdExceeded(const StorageDevice& Device) {
  const EFI_ATA_STATUS_BLOCK* Registers = Device.LastPacket != nullptr ? Device.LastPacket->Asb : Device.StatusBlock;
  return Registers->AtaCylinderLow == ata::SmartExceededLow && Registers->AtaCylinderHigh == ata::SmartExceededHigh;
}

// The status polls proper, between SMART checks and closing the timer.
UINT64 PollReturnStatus(StorageRun& Run, StorageDevice& Device, PeriodicTimer& Timer) {
  for (UINT64 Poll = 0; Poll < StatusPolls; ++Poll) {
    if (!Run.KeepRunning()) return TEST_RESULT_CANCELED;
    if (!CommandSucceeded(SmartReturnStatus(&Device))) return Failed(Run, Device);
    if (ThresholdExceeded(Device)) return TEST_RESULT_FAILED;
    if (EFI_ERROR(Timer.WaitTick())) return TEST_RESULT_FAILED;
    Run.ReportProgress(Poll * 10);
  }
  return TEST_RESULT_PASSED;
}

// Waits up to five ticks, leaving early on a stop request.
EFI_STATUS WaitBetweenPolls(StorageRun& Run, PeriodicTimer& Timer) {
  for (UINT64 Tick = 0; Tick < TicksPerSelfTestPoll && Run.KeepRunning(); ++Tick) {
    const EFI_STATUS Status = Timer.WaitTick();
    if (EFI_ERROR(Status)) return Status;
  }
  return EFI_SUCCESS;
}

// Polls a started self-test until the drive reports its outcome or the run
// is stopped; a stopped self-test is aborted on the drive.
UINT64 FollowSelfTest(StorageRun& Run, StorageDevice& Device, PeriodicTimer& Timer) {
  while (Run.KeepRunning()) {
    if (!CommandSucceeded(SmartReadData(&Device))) return Failed(Run, Device);
    const UINT8 Status = ExecutionStatus(Device);
    if (EFI_ERROR(WaitBetweenPolls(Run, Timer))) return TEST_RESULT_FAILED;
    const UINT8 State = Status >> 4;
    if (State == SelfTestInProgress) {
      // Low nibble: tenths of the work left (a drive may claim up to 15).
      const UINT64 TenthsLeft = Status & 0x0F;
      Run.ReportProgress(TenthsLeft > 9 ? 9 : 99 - 10 * TenthsLeft);
      continue;
    }
    UINT64 Result = TEST_RESULT_PASSED;
    if (State != SelfTestPassed) {
      Run.LogKey(LineMessage, KeySelfTestErrorDetected);
      Result = TEST_RESULT_FAILED;
    }
    Run.ReportProgress(100);
    if (Run.KeepRunning()) return Result;
    break;
  }
  if (SmartExecuteOffline(&Device, ata::OfflineAbortSelfTest, 0) != 0) return Failed(Run, Device);
  return TEST_RESULT_CANCELED;
}

}  // namespace

UINT64 SmartStatusTest(StorageRun& Run, StorageDevice& Device) {
  Run.ReportProgress(0);
  if (Device.Info->SmartSupported == 0) {
    Run.LogKey(LineWarning, KeySmartNotSupported);
    return Finish(Run, TEST_RESULT_NOT_SUPPORTED);
  }
  if (!EnableSmartIfNeeded(Run, Device, LineMessage)) return Finish(Run, TEST_RESULT_FAILED);
  PeriodicTimer Timer;
  if (EFI_ERROR(Timer.StartWaitable(StatusPollPeriod))) return Finish(Run, TEST_RESULT_FAILED);
  return Finish(Run, PollReturnStatus(Run, Device, Timer));
}

UINT64 SmartSelfTest(StorageRun& Run, StorageDevice& Device, SelfTestKind Kind) {
  Run.ReportProgress(0);
  if (Device.Info->SmartSupported == 0) {
    Run.LogKey(LineWarning, KeySmartNotSupported);
    return Finish(Run, TEST_RESULT_NOT_SUPPORTED);
  }
  if (!EnableSmartIfNeeded(Run, Device, LineWarning)) return Finish(Run, TEST_RESULT_FAILED);
  if (Device.Info->SelfTestSupported == 0 || !KnownKind(Kind)) return Finish(Run, TEST_RESULT_NOT_SUPPORTED);

  if (!CommandSucceeded(SmartReadData(&Device))) return Finish(Run, Failed(Run, Device));
  if (ExecutionStatus(Device) >> 4 == SelfTestInProgress) {
    if (SmartExecuteOffline(&Device, ata::OfflineAbortSelfTest, 0) != 0) return Finish(Run, Failed(Run, Device));
    Run.LogKey(LineMessage, KeySelfTestAlreadyInProgress);
  }

  PeriodicTimer Timer;
  if (EFI_ERROR(Timer.StartWaitable(SelfTestTickPeriod))) return Finish(Run, TEST_RESULT_FAILED);
  const SelfTestStart Start = StartOf(Kind);
  if (!CommandSucceeded(SmartExecuteOffline(&Device, Start.Subcommand, Start.Count)))
    return Finish(Run, NoteSilentDrive(Run, Device) ? TEST_RESULT_FAILED : Start.RefusedResult);
  return Finish(Run, FollowSelfTest(Run, Device, Timer));
}

}  // namespace tarvik
