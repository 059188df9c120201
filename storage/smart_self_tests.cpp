#include "storage/smart_self_tests.h"

#include "core/periodic_timer.h"
#include "registry/module_protocol.h"
#include "drives/self_test_follow.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_definitions.h"
#include "storage/ata_drive_operations.h"

namespace tarvik {
namespace {

constexpr UINT64 StatusPollPeriod = 1500000;      // 150 ms, in 100 ns units
constexpr UINT64 SelfTestTickPeriod = 10000000;   // 1 s
constexpr UINT64 TicksPerSelfTestPoll = 5;
constexpr UINT64 StatusPolls = 11;                // at 0, 10, ..., 100 percent

struct SelfTestStart {
  UINT8 Subcommand;
  UINT64 RefusedResult;  // what a refused start means for the test
};

constexpr SelfTestStart StartOf(SelfTestKind Kind) {
  switch (Kind) {
    case SelfTestKind::Short: return {ata::OfflineShortSelfTest, TEST_RESULT_FAILED};
    case SelfTestKind::Drive: return {ata::OfflineDriveSelfTest, TEST_RESULT_NOT_SUPPORTED};
    case SelfTestKind::Extended: return {ata::OfflineExtendedSelfTest, TEST_RESULT_FAILED};
  }
  return {0, TEST_RESULT_NOT_SUPPORTED};  // no self-test of the drive's
}

// A failed command is a failed test, noting a drive that did not answer; so
// is an error the self-test found.
UINT64 SelfTestResult(DriveRun& Run, const SelfTestPoll& Poll) {
  if (Poll.Outcome == DriveOutcome::Passed) return TEST_RESULT_PASSED;
  if (Poll.Outcome == DriveOutcome::Unreadable) Run.Log(LineMessage, KeySelfTestErrorDetected);
  if (Poll.Outcome == DriveOutcome::NoAnswer) Run.Log(LineError, KeyCommunicationFailure);
  return TEST_RESULT_FAILED;
}

// The status polls proper, between SMART checks and closing the timer.
UINT64 PollReturnStatus(StorageRun& Run, const DriveOperations& Drive, PeriodicTimer& Timer) {
  for (UINT64 Poll = 0; Poll < StatusPolls; ++Poll) {
    if (!Run.KeepRunning()) return TEST_RESULT_CANCELED;
    const HealthVerdict Verdict = Drive.ReadHealth(Drive.Context);
    if (Verdict == HealthVerdict::NoAnswer) Run.LogKey(LineError, KeyCommunicationFailure);
    if (Verdict != HealthVerdict::Good) return TEST_RESULT_FAILED;
    if (EFI_ERROR(Timer.WaitTick())) return TEST_RESULT_FAILED;
    Run.ReportProgress(Poll * 10);
  }
  return TEST_RESULT_PASSED;
}

}  // namespace

UINT64 SmartStatusTest(StorageRun& Run, StorageDevice& Device) {
  Run.ReportProgress(0);
  if (Device.Info->SmartSupported == 0) {
    Run.LogKey(LineWarning, KeySmartNotSupported);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  if (!EnableSmartIfNeeded(Run, Device, LineMessage)) return Run.Finish(TEST_RESULT_FAILED);
  PeriodicTimer Timer;
  if (EFI_ERROR(Timer.StartWaitable(StatusPollPeriod))) return Run.Finish(TEST_RESULT_FAILED);
  return Run.Finish(PollReturnStatus(Run, AtaDriveOperations(Device, 1), Timer));
}

UINT64 SmartSelfTest(StorageRun& Run, StorageDevice& Device, SelfTestKind Kind) {
  Run.ReportProgress(0);
  if (Device.Info->SmartSupported == 0) {
    Run.LogKey(LineWarning, KeySmartNotSupported);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  if (!EnableSmartIfNeeded(Run, Device, LineWarning)) return Run.Finish(TEST_RESULT_FAILED);
  const SelfTestStart Start = StartOf(Kind);
  if (Device.Info->SelfTestSupported == 0 || Start.Subcommand == 0) return Run.Finish(TEST_RESULT_NOT_SUPPORTED);

  const DriveOperations Drive = AtaDriveOperations(Device, 1);
  const SelfTestPoll Before = Drive.PollSelfTest(Drive.Context);
  if (Before.Outcome == DriveOutcome::Refused || Before.Outcome == DriveOutcome::NoAnswer)
    return Run.Finish(SelfTestResult(Run, Before));
  if (Before.Outcome == DriveOutcome::Running) {
    const DriveOutcome Aborted = Drive.AbortSelfTest(Drive.Context);
    if (Aborted != DriveOutcome::Passed) return Run.Finish(SelfTestResult(Run, {Aborted}));
    Run.LogKey(LineMessage, KeySelfTestAlreadyInProgress);
  }

  PeriodicTimer Timer;
  if (EFI_ERROR(Timer.StartWaitable(SelfTestTickPeriod))) return Run.Finish(TEST_RESULT_FAILED);
  const DriveOutcome Started = Drive.StartSelfTest(Drive.Context, Start.Subcommand);
  if (Started != DriveOutcome::Passed)
    return Run.Finish(Started == DriveOutcome::Refused ? Start.RefusedResult : SelfTestResult(Run, {Started}));
  return Run.Finish(FollowSelfTest(Run, Drive, Timer, TicksPerSelfTestPoll, SelfTestResult));
}

}  // namespace tarvik
