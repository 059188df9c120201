// The recovery tool's run screen: the tool's rows, the operation and the
// progress bar on the left, the lines the tool reported on the right.
#pragma once

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/pool.h"
#include "efi/efi.h"

namespace tarvik {

// Rows of the tool whose last drawn value is remembered; further rows are
// drawn on every progress update.
inline constexpr UINT64 TrackedInfoRows = 8;

// The recovery flow's record. RecoveryToolFlow owns it for the flow's
// lifetime; the timer notifications and the tool's callbacks reach it
// through the flow's binding. The destructor frees every stored line.
struct RecoveryRun {
  RecoveryRun() = default;
  ~RecoveryRun();
  RecoveryRun(const RecoveryRun&) = delete;
  RecoveryRun& operator=(const RecoveryRun&) = delete;

  // Selection arrays and the first line array; false when the pool refused.
  bool SetUp();
  // Appends an exact-size copy of Text, growing the array by five when full.
  EFI_STATUS StoreLine(const CHAR16* Text);
  // Moves the stored lines into an array five entries larger.
  EFI_STATUS GrowRecoverLines();

  BadSectorsToolProtocol* Tool = nullptr;
  PoolPtr<CHAR16> RecoverToolName;
  UINT64 RecoverDeviceCount = 0;
  UINT64 RecoverAlgorithmCount = 0;
  PoolPtr<UINT8> RecoverDeviceSelection;
  PoolPtr<UINT8> RecoverAlgorithmSelection;
  UINT64 ChosenToolDevice = 0;
  UINT64 ChosenToolAlgorithm = 0;

  CHAR16** RecoverLines = nullptr;  // RecoverLineCapacity entries, RecoverLineCount filled
  UINT64 RecoverLineCount = 0;
  UINT64 RecoverLineCapacity = 0;
  UINT64 RecoverLineTotal = 0;      // lines of the right panel
  UINT64 RecoverVisibleLines = 0;
  UINT64 RecoverScrollTop = 0;

  EFI_TIME RecoverStartTime = {};
  EFI_TIME RecoverEndTime = {};
  UINT8 RecoverDeclined = 0;             // a warning or confirmation was refused
  volatile UINT8 RecoverDialogOpen = 0;  // a box of the tool waits for its answer
  UINT64 RecoverSpinnerRow = 0;          // the row of the progress bar
  UINT8 RecoverSpinnerState = 0;

  // The tool reports after every chunk; the left panel is redrawn at most
  // when the draw timer has set ProgressDrawDue, and then only what changed.
  volatile UINT8 ProgressDrawDue = 1;
  UINT64 LatestPercent = 0;  // last reported
  INT64 DrawnPercent = -1;   // last drawn; -1 forces the bar
  UINT64 DrawnRowHashes[TrackedInfoRows] = {};
};

enum class RecoverView : UINT8 { Running = 1, Final = 2 };
enum class InfoDraw : UINT8 { Whole = 0, Changes = 1 };

// Frame, footer, panel titles and both panels.
VOID DrawRecoverScreen(RecoveryRun& Run);
// The left panel with Percent: whole, or only the rows and bar that changed.
VOID DrawRecoverInfo(RecoveryRun& Run, UINT64 Percent, InfoDraw What);
// The right panel: start time, the stored lines and, in the final view, the
// finish time and duration.
VOID DrawRecoverResults(RecoveryRun& Run, RecoverView View);

}  // namespace tarvik
