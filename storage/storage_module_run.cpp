#include "storage/storage_module_run.h"

#include "core/diag_common.h"
#include "storage/ata_commands.h"
#include "storage/seek_tests.h"
#include "storage/smart_self_tests.h"
#include "storage/storage_keys.h"
#include "storage/storage_module.h"
#include "storage/targeted_read.h"

namespace tarvik {
namespace {

// The extended self-test runs under index 6, which the menus do not list.
constexpr UINT64 StorageAlgorithmCount = 7;

constexpr const CHAR16* KeyCantDisableSmart = u"CANT_DISABLE_SMART";

EFIAPI EFI_STATUS IgnoreProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

UINT64 RunAlgorithm(UINT64 Algorithm, StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common) {
  switch (Algorithm) {
    case 0: return SmartStatusTest(Run, Device);
    case 1: return SmartSelfTest(Run, Device, SelfTestKind::Short);
    case 2: return SmartSelfTest(Run, Device, SelfTestKind::Drive);
    case 3: return RandomSeekTest(Run, Device, Common);
    case 4: return FunnelSeekTest(Run, Device, Common);
    case 5: return TargetedReadTest(Run, Device);
    default: return SmartSelfTest(Run, Device, SelfTestKind::Extended);
  }
}

}  // namespace

EFIAPI UINT64 StorageRunTest(TestModuleProtocol* This, UINT64 Algorithm, UINT8 DeviceIndex,
                             TEST_PROGRESS_CALLBACK Progress, TEST_MESSAGE_CALLBACK Message) {
  StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr || Algorithm >= StorageAlgorithmCount || DeviceIndex >= Module->Drives.DeviceCount)
    return EFI_INVALID_PARAMETER;
  // The seek tests draw their addresses from the shared generator.
  if (gDiagCommon == nullptr) return TEST_RESULT_PLATFORM_ERROR;
  StorageRun& Run = Module->Run;
  Run.This = This;
  Run.ProgressCallback = Progress != nullptr ? Progress : IgnoreProgress;
  Run.MessageCallback = Message;
  Run.Running = 1;
  Run.SmartEnabledByTest = 0;
  Run.Progress = 0;

  StorageDevice& Device = Module->Drives.Devices[DeviceIndex];
  UINT64 Result = RunAlgorithm(Algorithm, Run, Device, *gDiagCommon);
  // Leave the drive's SMART setting as the user had it.
  if (Run.SmartEnabledByTest != 0 && SmartDisableOperations(&Device) != 0) {
    Run.LogKey(LineWarning, KeyCantDisableSmart);
    Result = TEST_RESULT_FAILED;
  }
  if (!Run.KeepRunning()) Result = TEST_RESULT_CANCELED;
  return Result;
}

EFIAPI EFI_STATUS StorageStopTest(TestModuleProtocol* This) {
  StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr) return EFI_INVALID_PARAMETER;
  Module->Run.Running = 0;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS StorageEvaluateResults(TestModuleProtocol* This, UINT64** Results, TEST_MESSAGE_CALLBACK Message) {
  const StorageModule* Module = StorageModuleOf(This);
  if (Module == nullptr || Results == nullptr || Message == nullptr) return EFI_ABORTED;
  UINT64 Failures = 0;
  for (UINT64 D = 0; D < Module->Drives.DeviceCount; ++D) {
    if (Results[D] == nullptr) continue;
    for (UINT64 A = 0; A < ListedStorageAlgorithms; ++A)
      if (Results[D][A] == TEST_RESULT_FAILED) ++Failures;
  }
  if (Failures == 0) return EFI_ABORTED;
  // The user's answer changes nothing: the advice stands.
  Message(This, StorageText(*Module, storage_text::ProblemsFound), static_cast<UINT8>(TestMessageKind::Notice), 0);
  return EFI_SUCCESS;
}

}  // namespace tarvik
