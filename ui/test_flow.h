// What Enter on a test of the main screen starts: the choice of devices and
// algorithms for the test at MainMenuSelection.
#pragma once

#include "efi/efi.h"

namespace tarvik {

extern UINT8* DeviceSelection;     // one byte per device, 1 = chosen
extern UINT8* AlgorithmSelection;  // one byte per algorithm, 1 = chosen
extern UINT64 SelectedDeviceCount;
extern UINT64 SelectedAlgorithmCount;

// Runs the flow for the test at MainMenuSelection and returns to the main
// screen, which redraws itself.
VOID RunTestFlow();

}  // namespace tarvik
