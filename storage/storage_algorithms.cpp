#include "storage/storage_algorithms.h"

#include "registry/test_module_protocol.h"
#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/seek_tests.h"
#include "storage/smart_self_tests.h"
#include "storage/targeted_read.h"

namespace tarvik {
namespace {

UINT64 RunAlgorithm(StorageAlgorithm Algorithm, StorageRun& Run, StorageDevice& Device,
                    const DiagCommonProtocol& Common) {
  switch (Algorithm) {
    case StorageAlgorithm::SmartStatus: return SmartStatusTest(Run, Device);
    case StorageAlgorithm::ShortSelfTest: return SmartSelfTest(Run, Device, SelfTestKind::Short);
    case StorageAlgorithm::DriveSelfTest: return SmartSelfTest(Run, Device, SelfTestKind::Drive);
    case StorageAlgorithm::RandomSeek: return RandomSeekTest(Run, Device, Common);
    case StorageAlgorithm::FunnelSeek: return FunnelSeekTest(Run, Device, Common);
    case StorageAlgorithm::TargetedRead: return TargetedReadTest(Run, Device);
    case StorageAlgorithm::ExtendedSelfTest: return SmartSelfTest(Run, Device, SelfTestKind::Extended);
  }
  return EFI_INVALID_PARAMETER;
}

}  // namespace

UINT64 RunStorageAlgorithm(UINT64 Index, StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common) {
  if (Index >= RunnableStorageAlgorithms) return EFI_INVALID_PARAMETER;
  Run.Running = 1;
  Run.SmartEnabledByTest = 0;
  Run.Progress = 0;
  UINT64 Result = RunAlgorithm(static_cast<StorageAlgorithm>(Index), Run, Device, Common);
  if (Run.SmartEnabledByTest != 0 && !CommandSucceeded(SmartDisableOperations(&Device))) Result = TEST_RESULT_FAILED;
  if (!Run.KeepRunning()) Result = TEST_RESULT_CANCELED;
  return Result;
}

}  // namespace tarvik
