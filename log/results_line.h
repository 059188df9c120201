// The results line of a saved log: one JSON object (docs/results.md) read
// from the log's lines through the log's own parser, so that any module's
// rows, outcomes and findings come through without this file knowing it.
#pragma once

#include "log/json_writer.h"
#include "registry/module_protocol.h"

namespace tarvik {

// SMBIOS strings of the machine; null for one the tables do not hold.
struct ResultsMachine {
  const CHAR16* Manufacturer = nullptr;
  const CHAR16* Product = nullptr;
  const CHAR16* SerialNumber = nullptr;
  const CHAR16* BiosVendor = nullptr;
  const CHAR16* BiosVersion = nullptr;
};

struct ResultsRun {
  BOOLEAN Tool = FALSE;  // a bad-sector tool's log rather than a test log
  const CHAR16* Version = u"";
  const EFI_TIME* Started = nullptr;
  const EFI_TIME* Saved = nullptr;
  const EFI_TIME* Ended = nullptr;  // a tool log: the end of its operation
  // A tool log: the line the tool writes when its run is cancelled.
  const CHAR16* ToolCanceledLine = nullptr;
  ResultsMachine Machine;
  const CHAR16* TestName = nullptr;
  // Names the test log's keys as the screens do; null leaves them as written.
  TestModuleProtocol* Module = nullptr;
  // The log: LineCount lines, LogLineChars characters apart, each terminated.
  const CHAR16* Lines = nullptr;
  UINT64 LineCount = 0;
};

// Writes the run's object and the line feed that ends it.
VOID WriteResultsLine(JsonWriter& Json, const ResultsRun& Run);

// Bytes that always hold the results line of Run.
UINTN ResultsLineCapacity(const ResultsRun& Run);

}  // namespace tarvik
