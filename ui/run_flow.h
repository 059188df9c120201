// The test flow after Enter on a test: the choice of devices and algorithms,
// the run of every chosen pair on the run screen, a result code per device,
// the outcome and the log screen.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// Runs the flow for the test at TestIndex of the registry and returns to
// the main screen, which redraws itself.
VOID RunTestFlow(UINT64 TestIndex);

// The callbacks given to the module's RunTest and EvaluateResults. Outside
// a flow, log lines are dropped; message boxes and the clock still work.
EFIAPI EFI_STATUS TestProgressCallback(VOID* This, UINT64 Percent, UINT64 Reserved);
EFIAPI EFI_STATUS TestMessageCallback(VOID* This, const CHAR16* Text, UINT8 Kind, UINT64 Reserved);

}  // namespace tarvik
