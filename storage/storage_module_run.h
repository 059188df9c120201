// The storage module's run slots: RunTest dispatches one algorithm on one
// drive, StopTest asks it to stop, EvaluateResults gives the verdict over a
// whole run.
#pragma once

#include "registry/module_protocol.h"

namespace tarvik {

// Algorithm 0-6 on drive DeviceIndex of the device table. SMART that the
// algorithm had to switch on is switched off again afterwards (failing that,
// the result is 1001); after StopTest the result is 1003.
EFIAPI UINT64 StorageRunTest(TestModuleProtocol* This, UINT64 Algorithm, UINT8 DeviceIndex,
                             TEST_PROGRESS_CALLBACK Progress, TEST_MESSAGE_CALLBACK Message);
// Called from the run screen's key poll, between two commands of the run.
EFIAPI EFI_STATUS StorageStopTest(TestModuleProtocol* This);
// With a failed algorithm on any drive: the advice box (kind 1), then
// EFI_SUCCESS. Otherwise nothing is shown and EFI_ABORTED returned.
EFIAPI EFI_STATUS StorageEvaluateResults(TestModuleProtocol* This, UINT64** Results, TEST_MESSAGE_CALLBACK Message);

}  // namespace tarvik
