// The log service: the lines of the last test or recovery run, the queries
// the log screens ask of them, and saving them to \Log\Log.log.
#pragma once

#include "core/service_record.h"

namespace tarvik {

#define LOG_PROTOCOL_GUID \
  EFI_GUID { 0xF55FA725, 0x6E97, 0x42BD, { 0x97, 0x28, 0x29, 0x2F, 0x1F, 0x01, 0x4A, 0x04 } }
inline constexpr EFI_GUID LogProtocolGuid = LOG_PROTOCOL_GUID;

// A line holds at most LogLineChars - 1 characters and its terminator.
inline constexpr UINTN LogLineChars = 200;

// Queue states of a (device, algorithm) cell as the run screen keeps them.
enum class QueueState : UINT8 {
  OnQueue = 0,
  InProgress = 1,
  Passed = 2,
  Failed = 3,
  Canceled = 4,
  NotSupported = 5,
  NotExecuted = 6,
};

// What SaveLog answers; the log screen tells only zero from non-zero.
enum class SaveLogCode : UINT64 {
  Saved = 0,
  NoFileSystem = 1,
  VolumeNotOpened = 2,
  RootNotRewound = 3,
  FileNotOpened = 4,   // neither \Log nor \Log\Log.log could be opened or created
  InfoNotRead = 5,
  EndNotReached = 6,
  WriteFailed = 7,     // the volume refused a line; the file keeps its old length
};

typedef EFI_STATUS(EFIAPI* LOG_BUILD_TEST_LOG)(UINT64 ModuleIndex, UINT8** TestStates, const UINT8* AlgorithmSelection,
                                               const UINT8* DeviceSelection, CHAR16** DeviceResultCodes,
                                               const EFI_TIME* RunTimes, const EFI_TIME* RunDurations,
                                               CHAR16** SummaryLines, UINT64 SummaryLineCount,
                                               CHAR16**** TestMessages, UINT64** TestMessageCounts);
typedef EFI_STATUS(EFIAPI* LOG_BUILD_RECOVER_LOG)(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex,
                                                  const EFI_TIME* StartTime, const EFI_TIME* EndTime);
typedef UINT64(EFIAPI* LOG_SAVE_LOG)(EFI_HANDLE DeviceHandle);
typedef UINT64(EFIAPI* LOG_GET_COUNT)();
typedef EFI_STATUS(EFIAPI* LOG_GET_LINE)(UINT64 Index, CHAR16** Copy);
typedef EFI_STATUS(EFIAPI* LOG_FREE_LOG)();
typedef EFI_STATUS(EFIAPI* LOG_GET_TEXT)(CHAR16** Text);
typedef EFI_STATUS(EFIAPI* LOG_GET_NTH_TEXT)(CHAR16** Text, UINT64 N);
typedef BOOLEAN(EFIAPI* LOG_STRIP_SECONDS_SUFFIX)(const CHAR16* Text, CHAR16** Copy);

struct LogProtocol {
  ServiceRecordHeader Header;
  LOG_BUILD_TEST_LOG BuildTestLog;
  LOG_BUILD_RECOVER_LOG BuildRecoverLog;
  LOG_SAVE_LOG SaveLog;
  LOG_GET_COUNT GetLineCount;
  LOG_GET_LINE GetLine;
  LOG_FREE_LOG FreeLog;
  LOG_GET_TEXT GetLogModuleKey;
  LOG_GET_NTH_TEXT GetLogDisplayName;
  LOG_GET_COUNT GetLogDeviceCount;
  LOG_GET_COUNT GetLogFirstDeviceLineCount;
  LOG_GET_NTH_TEXT GetLogResultCode;
  LOG_STRIP_SECONDS_SUFFIX StripSecondsSuffix;
};
static_assert(__builtin_offsetof(LogProtocol, BuildTestLog) == 5 * 8);
static_assert(__builtin_offsetof(LogProtocol, BuildRecoverLog) == 6 * 8);
static_assert(__builtin_offsetof(LogProtocol, SaveLog) == 7 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLineCount) == 8 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLine) == 9 * 8);
static_assert(__builtin_offsetof(LogProtocol, FreeLog) == 10 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLogModuleKey) == 11 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLogDisplayName) == 12 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLogDeviceCount) == 13 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLogFirstDeviceLineCount) == 14 * 8);
static_assert(__builtin_offsetof(LogProtocol, GetLogResultCode) == 15 * 8);
static_assert(__builtin_offsetof(LogProtocol, StripSecondsSuffix) == 16 * 8);
static_assert(sizeof(LogProtocol) == 17 * 8);

EFI_STATUS InstallLog(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
