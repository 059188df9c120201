#include "drives/self_test_follow.h"

#include "registry/module_protocol.h"

namespace tarvik {

UINT64 FollowSelfTest(DriveRun& Run, const DriveOperations& Drive, PeriodicTimer& Timer, UINT64 TicksPerPoll,
                      SelfTestOutcome Result) {
  while (Run.KeepRunning()) {
    const SelfTestPoll Poll = Drive.PollSelfTest(Drive.Context);
    if (Poll.Outcome == DriveOutcome::Refused || Poll.Outcome == DriveOutcome::NoAnswer) return Result(Run, Poll);
    for (UINT64 Tick = 0; Tick < TicksPerPoll && Run.KeepRunning(); ++Tick)
      if (EFI_ERROR(Timer.WaitTick())) return TEST_RESULT_FAILED;
    if (Poll.Outcome == DriveOutcome::Running) {
      Run.ReportProgress(Poll.Percent);
      continue;
    }
    const UINT64 Finished = Result(Run, Poll);
    Run.ReportProgress(100);
    if (Run.KeepRunning()) return Finished;
    break;  // stopped while the outcome was on its way: the drive is told all the same
  }
  const DriveOutcome Aborted = Drive.AbortSelfTest(Drive.Context);
  return Aborted == DriveOutcome::Passed ? TEST_RESULT_CANCELED : Result(Run, {Aborted});
}

}  // namespace tarvik
