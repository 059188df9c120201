#include "core/periodic_timer.h"
#include "drives/self_test_follow.h"
#include "nvme/nvme_drive_operations.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_tests.h"
#include "registry/module_protocol.h"

namespace tarvik {
namespace {

constexpr UINT64 PollPeriod = 10000000;  // 1 s, in 100 ns units

// The result of a finished self-test or of a command about it that failed.
UINT64 SelfTestResult(DriveRun& Run, const SelfTestPoll& Poll) {
  if (Poll.Outcome == DriveOutcome::Passed) return TEST_RESULT_PASSED;
  if (Poll.Outcome == DriveOutcome::NoAnswer) Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
  if (Poll.Outcome == DriveOutcome::Unreadable) {
    Run.Log(u"ERROR %s", nvme_key::SelfTestFailed);
    if (Poll.LbaKnown) Run.Log(u"ERROR %s %ld", nvme_key::SelfTestFailingLba, Poll.FailingLba);
  }
  return TEST_RESULT_FAILED;
}

}  // namespace

UINT64 NvmeSelfTest(DriveRun& Run, const NvmeDevice& Device, UINT8 Code) {
  Run.ReportProgress(0);
  if (Device.Controller.SelfTestSupported == 0) {
    Run.Log(u"WARNING %s", nvme_key::SelfTestNotSupported);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  PeriodicTimer Timer;
  if (EFI_ERROR(Timer.StartWaitable(PollPeriod))) return Run.Finish(TEST_RESULT_FAILED);
  const NvmeDriveOperations Provider(Device, false);
  const DriveOperations& Drive = Provider.Operations();

  // A log the controller refuses does not keep the test from starting.
  const SelfTestPoll Before = Drive.PollSelfTest(Drive.Context);
  if (Before.Outcome == DriveOutcome::NoAnswer) return Run.Finish(SelfTestResult(Run, Before));
  if (Before.Outcome == DriveOutcome::Running) {
    Run.Log(u"MESSAGE %s", nvme_key::SelfTestAlreadyInProgress);
    if (Drive.AbortSelfTest(Drive.Context) == DriveOutcome::NoAnswer)
      return Run.Finish(SelfTestResult(Run, {DriveOutcome::NoAnswer}));
  }
  const DriveOutcome Started = Drive.StartSelfTest(Drive.Context, Code);
  if (Started == DriveOutcome::NoAnswer) return Run.Finish(SelfTestResult(Run, {Started}));
  if (Started != DriveOutcome::Passed) {
    Run.Log(u"WARNING %s", nvme_key::SelfTestNotSupported);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  return Run.Finish(FollowSelfTest(Run, Drive, Timer, 1, SelfTestResult));
}

}  // namespace tarvik
