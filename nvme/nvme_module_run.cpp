#include "nvme/nvme_module_run.h"

#include "core/diag_common.h"
#include "nvme/nvme_commands.h"
#include "nvme/nvme_keys.h"
#include "nvme/nvme_module.h"
#include "nvme/nvme_tests.h"

namespace tarvik {
namespace {

EFIAPI EFI_STATUS IgnoreProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

UINT64 RunAlgorithm(NvmeAlgorithm Algorithm, DriveRun& Run, const NvmeDevice& Device, const DiagCommonProtocol& Common) {
  switch (Algorithm) {
    case NvmeAlgorithm::HealthStatus: return NvmeHealthStatusTest(Run, Device);
    case NvmeAlgorithm::ShortSelfTest: return NvmeSelfTest(Run, Device, nvme_self_test::Short);
    case NvmeAlgorithm::ExtendedSelfTest: return NvmeSelfTest(Run, Device, nvme_self_test::Extended);
    case NvmeAlgorithm::RandomRead: return NvmeRandomReadTest(Run, Device, Common);
    case NvmeAlgorithm::ErrorLogRead: return NvmeErrorLogReadTest(Run, Device);
    case NvmeAlgorithm::FullReadScan: return NvmeFullReadScan(Run, Device);
  }
  return TEST_RESULT_NOT_SUPPORTED;
}

}  // namespace

EFIAPI UINT64 NvmeRunTest(TestModuleProtocol* This, UINT64 Algorithm, UINT8 DeviceIndex, TEST_PROGRESS_CALLBACK Progress,
                          TEST_MESSAGE_CALLBACK Message) {
  NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr || Algorithm >= NvmeAlgorithmCount || DeviceIndex >= Module->Drives.DeviceCount)
    return EFI_INVALID_PARAMETER;
  // The random read draws its addresses from the shared generator.
  if (gDiagCommon == nullptr) return TEST_RESULT_PLATFORM_ERROR;
  DriveRun& Run = Module->Run;
  Run.This = This;
  Run.ProgressCallback = Progress != nullptr ? Progress : IgnoreProgress;
  Run.MessageCallback = Message;
  Run.Running = 1;
  Run.Progress = 0;
  UINT64 Result = RunAlgorithm(static_cast<NvmeAlgorithm>(Algorithm), Run, Module->Drives.Devices[DeviceIndex],
                               *gDiagCommon);
  if (!Run.KeepRunning()) Result = TEST_RESULT_CANCELED;
  return Result;
}

EFIAPI EFI_STATUS NvmeStopTest(TestModuleProtocol* This) {
  NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr) return EFI_INVALID_PARAMETER;
  Module->Run.Running = 0;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS NvmeEvaluateResults(TestModuleProtocol* This, UINT64** Results, TEST_MESSAGE_CALLBACK Message) {
  const NvmeModule* Module = NvmeModuleOf(This);
  if (Module == nullptr || Results == nullptr || Message == nullptr) return EFI_ABORTED;
  UINT64 Failures = 0;
  for (UINT64 D = 0; D < Module->Drives.DeviceCount; ++D) {
    if (Results[D] == nullptr) continue;
    for (UINT64 A = 0; A < NvmeAlgorithmCount; ++A)
      if (Results[D][A] == TEST_RESULT_FAILED) ++Failures;
  }
  if (Failures == 0) return EFI_ABORTED;
  Message(This, NvmeText(*Module, nvme_text::ProblemsFound), static_cast<UINT8>(TestMessageKind::Notice), 0);
  return EFI_SUCCESS;
}

}  // namespace tarvik
