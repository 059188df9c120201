#include "nvme/nvme_commands.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_structures.h"
#include "nvme/nvme_tests.h"
#include "registry/test_module_protocol.h"

namespace tarvik {

UINT64 NvmeHealthStatusTest(DriveRun& Run, const NvmeDevice& Device) {
  Run.ReportProgress(0);
  NvmePages Page(NvmeHealthLogBytes);
  if (!Page) return TEST_RESULT_FAILED;
  const NvmeAnswer Answer = NvmeGetLogPage(Device.PassThru, NvmeAllNamespaces, nvme_log::Health, Page.get(),
                                           static_cast<UINT32>(NvmeHealthLogBytes));
  NvmeHealthFacts Health{};
  if (Answer == NvmeAnswer::Silent) {
    Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
    return TEST_RESULT_FAILED;
  }
  if (Answer != NvmeAnswer::Done || !ParseHealthLog(Page.get(), NvmeHealthLogBytes, &Health)) {
    Run.Log(u"WARNING %s", nvme_key::CantPerformTest);
    return TEST_RESULT_NOT_SUPPORTED;
  }
  Run.Log(u"MESSAGE %s %d", nvme_key::CriticalWarning, static_cast<INT32>(Health.CriticalWarning));
  Run.Log(u"MESSAGE %s %d", nvme_key::Temperature, Health.TemperatureC);
  Run.Log(u"MESSAGE %s %d", nvme_key::PercentageUsed, static_cast<INT32>(Health.PercentageUsed));
  Run.Log(u"MESSAGE %s %d", nvme_key::AvailableSpare, static_cast<INT32>(Health.AvailableSpare));
  Run.Log(u"MESSAGE %s %d", nvme_key::SpareThreshold, static_cast<INT32>(Health.SpareThreshold));
  Run.Log(u"MESSAGE %s %ld", nvme_key::MediaErrors, Health.MediaErrors);
  Run.Log(u"MESSAGE %s %ld", nvme_key::PowerOnHours, Health.PowerOnHours);
  Run.Log(u"MESSAGE %s %ld", nvme_key::UnsafeShutdowns, Health.UnsafeShutdowns);
  Run.ReportProgress(100);
  if (!HealthFailing(Health)) return TEST_RESULT_PASSED;
  Run.Log(u"ERROR %s", nvme_key::HealthFailing);
  return TEST_RESULT_FAILED;
}

}  // namespace tarvik
