#include "nvme/nvme_drive_operations.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_tests.h"
#include "registry/module_protocol.h"

namespace tarvik {
UINT64 NvmeHealthStatusTest(DriveRun& Run, const NvmeDevice& Device) {
  Run.ReportProgress(0);
  NvmeDriveOperations Provider(Device, false);
  const DriveOperations& Drive = Provider.Operations();
  const HealthVerdict Verdict = Drive.ReadHealth(Drive.Context);
  if (Verdict == HealthVerdict::NoAnswer) {
    Run.Log(u"ERROR %s", nvme_key::CommunicationFailure);
    return Run.Finish(TEST_RESULT_FAILED);
  }
  if (Verdict == HealthVerdict::NotOffered) {
    Run.Log(u"WARNING %s", nvme_key::CantPerformTest);
    return Run.Finish(TEST_RESULT_NOT_SUPPORTED);
  }
  // Named figures, each a field of the results file; three short lines so
  // that the log screen shows them whole.
  const NvmeHealthFacts& Health = Provider.Health();
  Run.Log(u"MESSAGE %s TEMPERATURE %d PERCENTAGE_USED %d CRITICAL_WARNING %d", nvme_key::Health,
          Health.TemperatureC, static_cast<INT32>(Health.PercentageUsed), static_cast<INT32>(Health.CriticalWarning));
  Run.Log(u"MESSAGE %s AVAILABLE_SPARE %d THRESHOLD %d", nvme_key::Spare, static_cast<INT32>(Health.AvailableSpare),
          static_cast<INT32>(Health.SpareThreshold));
  Run.Log(u"MESSAGE %s POWER_ON_HOURS %ld UNSAFE_SHUTDOWNS %ld MEDIA_ERRORS %ld", nvme_key::Usage,
          Health.PowerOnHours, Health.UnsafeShutdowns, Health.MediaErrors);
  if (Verdict == HealthVerdict::Good) return Run.Finish(TEST_RESULT_PASSED);
  Run.Log(u"ERROR %s", nvme_key::HealthFailing);
  return Run.Finish(TEST_RESULT_FAILED);
}

}  // namespace tarvik
