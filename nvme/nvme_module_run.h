// The NVMe module's RunTest, StopTest and EvaluateResults slots.
#pragma once

#include "registry/module_protocol.h"

namespace tarvik {

EFIAPI UINT64 NvmeRunTest(TestModuleProtocol* This, UINT64 Algorithm, UINT8 DeviceIndex, TEST_PROGRESS_CALLBACK Progress,
                          TEST_MESSAGE_CALLBACK Message);
EFIAPI EFI_STATUS NvmeStopTest(TestModuleProtocol* This);
// With a failed algorithm on any drive, advice as a notice.
EFIAPI EFI_STATUS NvmeEvaluateResults(TestModuleProtocol* This, UINT64** Results, TEST_MESSAGE_CALLBACK Message);

}  // namespace tarvik
