#include "core/periodic_timer.h"
#include "nvme/nvme_commands.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_structures.h"
#include "nvme/nvme_tests.h"
#include "registry/module_protocol.h"

namespace tarvik {
namespace {

constexpr UINT64 PollPeriod = 10000000;  // 1 s, in 100 ns units
// Polls after the test left the log's current operation while its result
// has not appeared yet.
constexpr UINT64 MissingResultPolls = 5;

UINT64 Finish(DriveRun& Run, UINT64 Result) {
  Run.ReportProgress(100);
  return Result;
}

UINT64 Silent(DriveRun& Run) {
  Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
  return TEST_RESULT_FAILED;
}

NvmeAnswer ReadSelfTestLog(const NvmeDevice& Device, UINT8* Page, NvmeSelfTestFacts* Facts) {
  // The log belongs to the controller: it is asked for with no namespace of its own.
  const NvmeAnswer Answer = NvmeGetLogPage(Device.PassThru, NvmeAllNamespaces, nvme_log::SelfTest, Page,
                                           sizeof(NvmeSelfTestLog));
  if (Answer == NvmeAnswer::Done && !ParseSelfTestLog(Page, sizeof(NvmeSelfTestLog), Facts)) return NvmeAnswer::Refused;
  return Answer;
}

UINT64 Outcome(DriveRun& Run, const NvmeSelfTestFacts& Facts) {
  if (Facts.NewestOutcome == NvmeSelfTestOutcome::Passed) return TEST_RESULT_PASSED;
  Run.Log(u"ERROR %s", nvme_key::SelfTestFailed);
  if (Facts.NewestLbaValid != 0) Run.Log(u"ERROR %s %ld", nvme_key::SelfTestFailingLba, Facts.NewestFailingLba);
  return TEST_RESULT_FAILED;
}

// Polls the log once a second until the test's result is there; a stop
// request aborts the test on the drive.
UINT64 Follow(DriveRun& Run, const NvmeDevice& Device, UINT8 Code, UINT8* Page, PeriodicTimer& Timer) {
  UINT64 Missing = 0;
  while (Run.KeepRunning()) {
    if (EFI_ERROR(Timer.WaitTick())) return TEST_RESULT_FAILED;
    if (!Run.KeepRunning()) break;
    NvmeSelfTestFacts Facts{};
    const NvmeAnswer Answer = ReadSelfTestLog(Device, Page, &Facts);
    if (Answer == NvmeAnswer::Silent) return Silent(Run);
    if (Answer != NvmeAnswer::Done) return TEST_RESULT_FAILED;
    if (Facts.RunningTest == Code) {
      Run.ReportProgress(Facts.RunningPercent > 99 ? 99 : Facts.RunningPercent);
      continue;
    }
    if (Facts.NewestTest == Code && Facts.NewestOutcome != NvmeSelfTestOutcome::Unused) return Outcome(Run, Facts);
    if (++Missing >= MissingResultPolls) return Outcome(Run, Facts);
  }
  if (NvmeDeviceSelfTest(Device.PassThru, Device.NamespaceId, nvme_self_test::Abort) == NvmeAnswer::Silent)
    return Silent(Run);
  return TEST_RESULT_CANCELED;
}

}  // namespace

UINT64 NvmeSelfTest(DriveRun& Run, const NvmeDevice& Device, UINT8 Code) {
  Run.ReportProgress(0);
  if (Device.Controller.SelfTestSupported == 0) {
    Run.Log(u"WARNING %s", nvme_key::SelfTestNotSupported);
    return Finish(Run, TEST_RESULT_NOT_SUPPORTED);
  }
  NvmePages Page(sizeof(NvmeSelfTestLog));
  PeriodicTimer Timer;
  if (!Page || EFI_ERROR(Timer.StartWaitable(PollPeriod))) return Finish(Run, TEST_RESULT_FAILED);

  NvmeSelfTestFacts Facts{};
  const NvmeAnswer Before = ReadSelfTestLog(Device, Page.get(), &Facts);
  if (Before == NvmeAnswer::Silent) return Finish(Run, Silent(Run));
  if (Before == NvmeAnswer::Done && Facts.RunningTest != 0) {
    Run.Log(u"MESSAGE %s", nvme_key::SelfTestAlreadyInProgress);
    if (NvmeDeviceSelfTest(Device.PassThru, Device.NamespaceId, nvme_self_test::Abort) == NvmeAnswer::Silent)
      return Finish(Run, Silent(Run));
  }
  const NvmeAnswer Started = NvmeDeviceSelfTest(Device.PassThru, Device.NamespaceId, Code);
  if (Started == NvmeAnswer::Silent) return Finish(Run, Silent(Run));
  if (Started != NvmeAnswer::Done) {
    Run.Log(u"WARNING %s", nvme_key::SelfTestNotSupported);
    return Finish(Run, TEST_RESULT_NOT_SUPPORTED);
  }
  return Finish(Run, Follow(Run, Device, Code, Page.get(), Timer));
}

}  // namespace tarvik
