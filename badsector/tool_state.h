// The bad-sector tool's state: one record, allocated when the tool is
// published and freed by its unload, that starts with the published record
// and holds the drives it works on, the "Storage" texts and the run in
// progress. The operations reach it through the tool's one installed
// pointer; the steps of a run are handed it explicitly.
#pragma once

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "storage/storage_device.h"

namespace tarvik {

// What the tool asks of its message callback. The answer to a warning, a
// confirmation or a question is 0 for yes; anything else stops the run.
enum class ToolMessageKind : UINT8 {
  Warning = 1,       // the user must acknowledge it
  Confirmation = 2,  // before an operation starts
  Line = 3,          // one line of the tool's output; the answer is ignored
  Question = 4,      // yes or no
};

// Numbers of the "Storage" texts the tool shows.
namespace tool_text {
inline constexpr UINT64 ToolName = 3;
inline constexpr UINT64 Device = 16;
inline constexpr UINT64 Size = 24;
inline constexpr UINT64 TotalSectors = 25;
inline constexpr UINT64 TestingSectors = 26;
inline constexpr UINT64 CheckBadSectors = 42;
inline constexpr UINT64 CheckAndRecover = 43;
inline constexpr UINT64 FailedToRun = 81;
inline constexpr UINT64 ScanTakesAnHour = 96;
inline constexpr UINT64 BackupBeforeRecovery = 97;
inline constexpr UINT64 ContinueRecovery = 98;
inline constexpr UINT64 Error = 99;
inline constexpr UINT64 InSector = 100;
inline constexpr UINT64 NotUncorrectable = 101;
inline constexpr UINT64 CannotContinue = 102;
inline constexpr UINT64 BadSectorsFound = 105;
inline constexpr UINT64 NoBadSectorFound = 106;
inline constexpr UINT64 CanceledByUser = 107;
inline constexpr UINT64 TryingToRepair = 108;
inline constexpr UINT64 Sector = 109;
inline constexpr UINT64 CannotBeWritten = 110;
inline constexpr UINT64 CorrectedSector = 111;
inline constexpr UINT64 CannotBeRecovered = 112;
inline constexpr UINT64 SectorsRecovered = 113;
inline constexpr UINT64 SectorsRemain = 114;
inline constexpr UINT64 AttemptRecovery = 115;
inline constexpr UINT64 ImminentFailure = 116;
}  // namespace tool_text

// Lines are formatted into 2000 bytes (999 characters); write
// uncorrectable's into 200.
inline constexpr UINTN ToolLineChars = 1000;
inline constexpr UINTN MarkLineChars = 100;

// The run in progress: the callbacks RunTool was given, the flag CancelTool
// clears (from the screen's key poll, between any two steps) and what the
// screen reads back: the last percentage and the sectors being verified.
struct ToolRun {
  BadSectorsToolProtocol* Context;  // handed to both callbacks
  TEST_PROGRESS_CALLBACK ProgressCallback;
  TEST_MESSAGE_CALLBACK MessageCallback;
  volatile UINT8 ToolRunning;
  UINT64 ToolProgress;
  UINT64 ToolRangeStart;
  UINT64 ToolRangeEnd;

  bool Running() const { return ToolRunning != 0; }
  VOID Cancel() { ToolRunning = 0; }
  // ToolProgress = Percent, then the progress callback.
  VOID ReportProgress(UINT64 Percent);
  // Shows Text as a warning, confirmation or question; true when the user
  // answered yes (0).
  bool Ask(const CHAR16* Text, ToolMessageKind Kind);
};

// One output line (kind 3) of at most Chars - 1 characters (Chars no more
// than ToolLineChars).
EFIAPI VOID ToolLine(ToolRun& Run, UINTN Chars, const CHAR16* Format, ...);

struct BadSectorsTool {
  BadSectorsToolProtocol Record;  // published; first, so the tool is freed as one block
  DiagCommonProtocol* Common;
  StorageDevice** Devices;  // the tool device list: the rotating drives (owned)
  UINT64 DeviceCount;
  CHAR16** Strings;  // the "Storage" table, the storage module's (it outlives the tool)
  UINT64 StringCount;
  ToolRun Run;

  // A "Storage" text by number; empty when the table has no such entry.
  const CHAR16* Text(UINT64 Id) const;
};
static_assert(__builtin_offsetof(BadSectorsTool, Record) == 0);

}  // namespace tarvik
