// The test flow after Enter on a test: the choice of devices and algorithms,
// the run of every chosen pair with live progress on the left and the queue
// on the right, a result code per device, the outcome and the log screen.
#pragma once

#include "efi/efi.h"
#include "registry/test_module_protocol.h"

namespace tarvik {

extern volatile UINT8 TestRunning;  // 1 while further pairs may start
extern INT64 LastPercent;           // last percentage drawn for the current pair
extern INT8 CurrentDevice;
extern INT8 CurrentAlgorithm;
extern UINT8 AlgorithmOrdinal;      // chosen algorithms of the device finished so far
extern UINT8 DevicesDone;
extern UINT64 LongestAlgorithmName;
extern UINT64 ResultLineCount;      // lines of the right panel
extern UINT64 ResultVisibleLines;
extern UINT64 ResultScrollTop;
extern UINT64* SpinnerRow;          // the row of the pair's progress bar (pool)
extern UINT8 SpinnerState;

// Runs the flow for the test at MainMenuSelection and returns to the main
// screen, which redraws itself.
VOID RunTestFlow();

// The callbacks given to the module's RunTest and EvaluateResults.
EFIAPI EFI_STATUS TestProgressCallback(VOID* This, UINT64 Percent, UINT64 Reserved);
EFIAPI EFI_STATUS TestMessageCallback(VOID* This, const CHAR16* Text, UINT8 Kind, UINT64 Reserved);

enum class ResultsMode : UINT8 { First = 0, Update = 1, Final = 2 };
VOID DrawTestProgress(INT64 Percent, UINT64 Device, UINT64 Algorithm, UINT64 Ordinal);
// Devices below Device show their result codes.
VOID DrawTestResults(ResultsMode Mode, const EFI_TIME* FinishTime, UINT64 Device);
// Fills DeviceResultCodes[Device]; EFI_ABORTED (slot left null) without the
// result-code service.
EFI_STATUS RequestDeviceResultCode(UINT64 Device, CHAR16** CodeSlot);

}  // namespace tarvik
