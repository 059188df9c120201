// The log service's operations, filled into its record by the installer.
#pragma once

#include "log/log_protocol.h"

namespace tarvik {

EFIAPI EFI_STATUS BuildTestLog(UINT64 ModuleIndex, UINT8** TestStates, const UINT8* AlgorithmSelection,
                               const UINT8* DeviceSelection, CHAR16** DeviceResultCodes, const EFI_TIME* RunTimes,
                               const EFI_TIME* RunDurations, CHAR16** SummaryLines, UINT64 SummaryLineCount,
                               CHAR16**** TestMessages, UINT64** TestMessageCounts);
EFIAPI EFI_STATUS BuildRecoverLog(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* StartTime,
                                  const EFI_TIME* EndTime);
EFIAPI UINT64 SaveLog(EFI_HANDLE DeviceHandle);

EFIAPI UINT64 GetLineCount();
EFIAPI EFI_STATUS GetLine(UINT64 Index, CHAR16** Copy);
EFIAPI EFI_STATUS FreeLog();
EFIAPI EFI_STATUS GetLogModuleKey(CHAR16** Text);
EFIAPI EFI_STATUS GetLogDisplayName(CHAR16** Text, UINT64 N);
EFIAPI UINT64 GetLogDeviceCount();
EFIAPI UINT64 GetLogFirstDeviceLineCount();
EFIAPI EFI_STATUS GetLogResultCode(CHAR16** Text, UINT64 N);
EFIAPI BOOLEAN StripSecondsSuffix(const CHAR16* Text, CHAR16** Copy);

}  // namespace tarvik
