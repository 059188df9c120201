// The lines of the last built log: one block of fixed 200-character lines,
// zero-filled, so a line the builder does not reach stays empty.
#pragma once

#include "log/log_layout.h"
#include "log/log_protocol.h"

namespace tarvik {

// Replaces the log with Count empty lines. On failure the log is empty.
EFI_STATUS AllocateLogLines(UINT64 Count);
// Discards the log.
VOID ReleaseLogLines();
UINT64 LogLineCount();
// Line Index (LogLineChars characters), or null beyond the last line.
CHAR16* LogLine(UINT64 Index);

// What the results line needs beyond the lines: which run made the log.
enum class LogRunKind : UINT8 { None, Test, Tool };
struct LogRunFacts {
  LogRunKind Kind = LogRunKind::None;
  UINT64 ModuleIndex = 0;  // a test log: the module's index in the registry
  EFI_TIME Start = {};
  EFI_TIME End = {};  // a tool log: when the operation ended
};
// The facts of the log last allocated; reset by AllocateLogLines.
LogRunFacts& CurrentLogRun();

// Appends to one log line without ever writing past its last character:
// text that would make the line longer than LogLineChars - 1 is cut. A
// writer on a null line (beyond the log) writes nothing.
class LogLineWriter {
 public:
  explicit LogLineWriter(CHAR16* Line);
  LogLineWriter& Append(const CHAR16* Text);
  // Appends Format formatted (the shared formatter's conversions).
  EFIAPI LogLineWriter& AppendFormatted(const CHAR16* Format, ...);

 private:
  CHAR16* Line_;
  UINTN Length_ = 0;
};

// Hands out the writers of the log's lines in order, from line 0.
class LogLineCursor {
 public:
  LogLineWriter Next();
  // The next line, begun with the time stamp of Time and a space.
  LogLineWriter NextStamped(const EFI_TIME& Time);

 private:
  UINT64 Next_ = 0;
};

// The time stamp of a log line (log_layout.h), keeping the lowest digits of
// a value too large for its field.
VOID FormatTimeStamp(const EFI_TIME& Time, CHAR16 (&Text)[TimeStampChars + 1]);

// Milliseconds from 1970-01-01 00:00 to Time (0 before 1970); nanoseconds
// and time zone are ignored.
UINT64 MillisecondsSince1970(const EFI_TIME& Time);

}  // namespace tarvik
