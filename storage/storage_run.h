// The state of one storage algorithm run, kept in the storage module's
// record: a drive algorithm's run (the callbacks RunTest was given, the
// keep-running flag StopTest clears, the last percentage) and whether the
// run had to switch SMART on. The algorithms report through it and read the
// flag between commands.
#pragma once

#include "drives/drive_run.h"
#include "efi/efi.h"

namespace tarvik {

struct StorageRun : DriveRun {
  UINT8 SmartEnabledByTest;  // RunTest switches SMART off again afterwards

  // One log line: Format filled with Key ("WARNING %s", "MESSAGE %s").
  VOID LogKey(const CHAR16* Format, const CHAR16* Key);
  // "ERROR READ_SECTOR_ERROR <lba>".
  VOID LogReadError(UINT64 Lba);
};

// Log line formats and keys of the storage algorithms.
inline constexpr const CHAR16* LineWarning = u"WARNING %s";
inline constexpr const CHAR16* LineMessage = u"MESSAGE %s";
inline constexpr const CHAR16* LineError = u"ERROR %s";

inline constexpr const CHAR16* KeyCantPerformTest = u"CANT_PERFORM_TEST";
inline constexpr const CHAR16* KeyCommunicationFailure = u"COMMUNICATION_FAILURE";
inline constexpr const CHAR16* KeySmartDisabled = u"SMART_DISABLED";
inline constexpr const CHAR16* KeyEnablingSmart = u"ENABLING_SMART";
inline constexpr const CHAR16* KeyCantEnableSmart = u"CANT_ENABLE_SMART";
inline constexpr const CHAR16* KeySmartNotSupported = u"SMART_NOT_SUPPORTED";
inline constexpr const CHAR16* KeySelfTestAlreadyInProgress = u"SELF_TEST_ALREADY_IN_PROGRESS";
inline constexpr const CHAR16* KeySelfTestErrorDetected = u"SHORT_SELFTEST_ERROR_DETECTED";
inline constexpr const CHAR16* KeyReadSectorError = u"READ_SECTOR_ERROR";

}  // namespace tarvik
