// The state of one storage algorithm run, kept in the storage module's
// record: the callbacks RunTest was given, the keep-running flag StopTest
// clears, whether the run had to switch SMART on, and the last percentage.
// The algorithms report through it and read the flag between commands.
#pragma once

#include "efi/efi.h"
#include "registry/test_module_protocol.h"

namespace tarvik {

struct StorageRun {
  TestModuleProtocol* This;  // context of both callbacks
  TEST_PROGRESS_CALLBACK ProgressCallback;
  TEST_MESSAGE_CALLBACK MessageCallback;
  volatile UINT8 Running;      // 1 while the run may go on; StopTest clears it
  UINT8 SmartEnabledByTest;    // RunTest switches SMART off again afterwards
  UINT64 Progress;             // the last percentage reported

  bool KeepRunning() const { return Running != 0; }

  // Progress = Percent, then the progress callback (when there is one).
  VOID ReportProgress(UINT64 Percent);
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
