// The run screen of the test flow: live progress of the current pair on the
// left, the queue of pairs with their states and result codes on the right.
#pragma once

#include "efi/efi.h"
#include "registry/module_protocol.h"
#include "ui/run_record.h"

namespace tarvik {

// The test flow's record: the run record the log is built from and the run
// screen's state. RunTestFlow owns it for the flow's lifetime; the timer
// notifications and the module's callbacks reach it through the flow's
// binding (ui/flow_binding.h).
struct TestRun {
  TestModuleProtocol* CurrentTest = nullptr;  // the module the flow runs
  UINT64 TestIndex = 0;                       // its index in the registry
  TestRunRecord Record;

  volatile UINT8 TestRunning = 0;  // 1 while further pairs may start
  INT64 LastPercent = 0;           // last percentage drawn for the current pair
  INT8 CurrentDevice = 0;          // the pair in progress (after the run: one past the last)
  INT8 CurrentAlgorithm = 0;
  UINT8 AlgorithmOrdinal = 0;      // chosen algorithms of the device finished so far
  UINT8 DevicesDone = 0;
  UINT64 LongestAlgorithmName = 0;
  UINT64 ResultLineCount = 0;      // lines of the right panel
  UINT64 ResultVisibleLines = 0;
  UINT64 ResultScrollTop = 0;
  UINT64 SpinnerRow = 0;           // the row of the pair's progress bar
  UINT8 SpinnerState = 0;
  // While a module's message box waits for its answer, its keys are the
  // box's: the key poll leaves them alone.
  volatile UINT8 ModuleBoxOpen = 0;
};

enum class ResultsMode : UINT8 { First = 0, Update = 1, Final = 2 };

// The left panel: the module's run rows, the algorithm, both progress bars.
VOID DrawTestProgress(TestRun& Run, INT64 Percent, UINT64 Device, UINT64 Algorithm, UINT64 Ordinal);
// The right panel; devices below Device show their result codes.
VOID DrawTestResults(const TestRun& Run, ResultsMode Mode, const EFI_TIME* FinishTime, UINT64 Device);
// Fills *CodeSlot with the result code of Device; EFI_ABORTED (slot left
// null) without the result-code service.
EFI_STATUS RequestDeviceResultCode(const TestRun& Run, UINT64 Device, CHAR16** CodeSlot);

}  // namespace tarvik
