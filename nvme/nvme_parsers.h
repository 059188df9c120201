// Pure readers of the pages an NVMe controller returns. Each takes the bytes
// the controller wrote and how many there are, reads nothing beyond them,
// and refuses (FALSE) a page too short for what it needs; a longer page is
// read up to its defined size.
#pragma once

#include "efi/efi.h"

namespace tarvik {

inline constexpr UINTN NvmeSerialChars = 21;  // the terminating NUL included
inline constexpr UINTN NvmeModelChars = 41;
inline constexpr UINTN NvmeFirmwareChars = 9;

struct NvmeControllerFacts {
  CHAR16 Serial[NvmeSerialChars];  // trailing spaces removed
  CHAR16 Model[NvmeModelChars];
  CHAR16 Firmware[NvmeFirmwareChars];
  UINT32 Version;           // as the controller reports it; 0 before NVMe 1.2
  UINT32 NamespaceCount;
  UINT8 MaxTransferShift;   // 2^n pages of 4 KiB per command; 0: no limit
  UINT8 SelfTestSupported;
  UINT8 VerifySupported;
  UINT16 ErrorLogEntries;   // 1-256
};

// FALSE for a short page, or a serial number or model that is empty or holds
// a byte outside printable ASCII: such a controller is not trusted.
BOOLEAN ParseIdentifyController(const UINT8* Page, UINTN Size, NvmeControllerFacts* Facts);

struct NvmeNamespaceFacts {
  UINT64 Blocks;      // the namespace's size in logical blocks
  UINT32 BlockBytes;  // the formatted LBA size
};

// FALSE for a short page, an empty namespace, a formatted LBA format past
// the listed ones, or an LBA size outside 512 B .. 64 KiB.
BOOLEAN ParseIdentifyNamespace(const UINT8* Page, UINTN Size, NvmeNamespaceFacts* Facts);

struct NvmeHealthFacts {
  UINT8 CriticalWarning;
  INT32 TemperatureC;  // the composite temperature; 0 when not reported
  UINT8 AvailableSpare;
  UINT8 SpareThreshold;
  UINT8 PercentageUsed;
  UINT64 PowerOnHours;  // the 128-bit counters, saturated at 2^64 - 1
  UINT64 UnsafeShutdowns;
  UINT64 MediaErrors;
};

BOOLEAN ParseHealthLog(const UINT8* Page, UINTN Size, NvmeHealthFacts* Facts);

// A health log that says the drive is failing: a critical-warning bit, the
// spare below its threshold, or the rated endurance used up.
BOOLEAN HealthFailing(const NvmeHealthFacts& Facts);

// The LBAs the used entries of an Error Information log name for namespace
// NamespaceId (or for every namespace), in page order, at most Capacity.
// Returns how many were written.
UINTN ErrorLogLbas(const UINT8* Page, UINTN Size, UINT32 NamespaceId, UINT64* Lbas, UINTN Capacity);

// The self-test result codes kept in the low nibble of an entry's status.
enum class NvmeSelfTestOutcome : UINT8 {
  Passed = 0x0,
  AbortedByCommand = 0x1,
  Failed = 0x5,        // 5h-7h: a fatal error or a failed segment
  Unused = 0xF,
  Other = 0xE,         // every other interruption
};

struct NvmeSelfTestFacts {
  UINT8 RunningTest;      // 0: none; 1h short, 2h extended
  UINT8 RunningPercent;   // 0-100 done of the running test
  UINT8 NewestTest;       // the newest entry's test code; 0 without one
  NvmeSelfTestOutcome NewestOutcome;
  UINT8 NewestLbaValid;
  UINT64 NewestFailingLba;
};

// The running test and the newest result; a log of only the header reads as
// one without results.
BOOLEAN ParseSelfTestLog(const UINT8* Page, UINTN Size, NvmeSelfTestFacts* Facts);

}  // namespace tarvik
