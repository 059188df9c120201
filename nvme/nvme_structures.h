// What an NVMe controller hands back: Identify Controller and Identify
// Namespace data, and the Error Information (01h), SMART / Health
// Information (02h) and Device Self-test (06h) log pages. Packed, with
// every field the module reads at its asserted offset.
#pragma once

#include "efi/efi.h"

namespace tarvik {

inline constexpr UINTN NvmeIdentifyBytes = 4096;
inline constexpr UINTN NvmeHealthLogBytes = 512;
inline constexpr UINTN NvmeErrorEntryBytes = 64;
inline constexpr UINTN NvmeSelfTestResults = 20;

struct [[gnu::packed]] NvmeIdentifyController {
  UINT16 VendorId;
  UINT16 SubsystemVendorId;
  UINT8 SerialNumber[20];  // ASCII, padded with spaces
  UINT8 ModelNumber[40];
  UINT8 FirmwareRevision[8];
  UINT8 RecommendedArbitrationBurst;
  UINT8 IeeeOui[3];
  UINT8 MultiPathCapabilities;
  UINT8 MaximumDataTransferSize;  // 2^n minimum pages; 0: no limit
  UINT16 ControllerId;
  UINT32 Version;  // major 31:16, minor 15:8, tertiary 7:0
  UINT8 Reserved84[172];
  UINT16 OptionalAdminCommands;  // bit 4: Device Self-test
  UINT8 AbortCommandLimit;
  UINT8 AsyncEventRequestLimit;
  UINT8 FirmwareUpdates;
  UINT8 LogPageAttributes;
  UINT8 ErrorLogPageEntries;  // zero-based
  UINT8 Reserved263[253];
  UINT32 NamespaceCount;
  UINT16 OptionalNvmCommands;  // bit 7: Verify
  UINT8 Reserved522[3574];
};
static_assert(sizeof(NvmeIdentifyController) == NvmeIdentifyBytes);
static_assert(__builtin_offsetof(NvmeIdentifyController, SerialNumber) == 4);
static_assert(__builtin_offsetof(NvmeIdentifyController, ModelNumber) == 24);
static_assert(__builtin_offsetof(NvmeIdentifyController, FirmwareRevision) == 64);
static_assert(__builtin_offsetof(NvmeIdentifyController, MaximumDataTransferSize) == 77);
static_assert(__builtin_offsetof(NvmeIdentifyController, Version) == 80);
static_assert(__builtin_offsetof(NvmeIdentifyController, OptionalAdminCommands) == 256);
static_assert(__builtin_offsetof(NvmeIdentifyController, ErrorLogPageEntries) == 262);
static_assert(__builtin_offsetof(NvmeIdentifyController, NamespaceCount) == 516);
static_assert(__builtin_offsetof(NvmeIdentifyController, OptionalNvmCommands) == 520);

struct [[gnu::packed]] NvmeLbaFormat {
  UINT16 MetadataSize;
  UINT8 DataSizeShift;  // the LBA is 2^n bytes
  UINT8 RelativePerformance;
};
static_assert(sizeof(NvmeLbaFormat) == 4);

struct [[gnu::packed]] NvmeIdentifyNamespace {
  UINT64 Size;  // in logical blocks
  UINT64 Capacity;
  UINT64 Utilization;
  UINT8 Features;
  UINT8 LbaFormatCount;      // zero-based
  UINT8 FormattedLbaSize;    // bits 3:0 the format's low bits, 6:5 its high bits
  UINT8 Reserved27[101];
  NvmeLbaFormat LbaFormats[64];
  UINT8 Reserved384[3712];
};
static_assert(sizeof(NvmeIdentifyNamespace) == NvmeIdentifyBytes);
static_assert(__builtin_offsetof(NvmeIdentifyNamespace, LbaFormatCount) == 25);
static_assert(__builtin_offsetof(NvmeIdentifyNamespace, FormattedLbaSize) == 26);
static_assert(__builtin_offsetof(NvmeIdentifyNamespace, LbaFormats) == 128);

struct [[gnu::packed]] NvmeErrorEntry {
  UINT64 ErrorCount;  // 0: an unused entry
  UINT16 SubmissionQueueId;
  UINT16 CommandId;
  UINT16 StatusField;
  UINT16 ParameterErrorLocation;
  UINT64 Lba;
  UINT32 NamespaceId;
  UINT8 VendorInformation;
  UINT8 TransportType;
  UINT8 Reserved30[2];
  UINT64 CommandSpecific;
  UINT16 TransportInformation;
  UINT8 Reserved42[22];
};
static_assert(sizeof(NvmeErrorEntry) == NvmeErrorEntryBytes);
static_assert(__builtin_offsetof(NvmeErrorEntry, Lba) == 16);
static_assert(__builtin_offsetof(NvmeErrorEntry, NamespaceId) == 24);

struct [[gnu::packed]] NvmeHealthLog {
  UINT8 CriticalWarning;
  UINT16 CompositeTemperature;  // kelvin
  UINT8 AvailableSpare;         // percent
  UINT8 AvailableSpareThreshold;
  UINT8 PercentageUsed;         // may exceed 100
  UINT8 EnduranceGroupWarning;
  UINT8 Reserved7[25];
  UINT8 DataUnitsRead[16];  // 128-bit little-endian counters from here on
  UINT8 DataUnitsWritten[16];
  UINT8 HostReadCommands[16];
  UINT8 HostWriteCommands[16];
  UINT8 ControllerBusyTime[16];
  UINT8 PowerCycles[16];
  UINT8 PowerOnHours[16];
  UINT8 UnsafeShutdowns[16];
  UINT8 MediaErrors[16];
  UINT8 ErrorLogEntries[16];
  UINT8 Reserved192[320];
};
static_assert(sizeof(NvmeHealthLog) == NvmeHealthLogBytes);
static_assert(__builtin_offsetof(NvmeHealthLog, AvailableSpare) == 3);
static_assert(__builtin_offsetof(NvmeHealthLog, PercentageUsed) == 5);
static_assert(__builtin_offsetof(NvmeHealthLog, PowerOnHours) == 128);
static_assert(__builtin_offsetof(NvmeHealthLog, UnsafeShutdowns) == 144);
static_assert(__builtin_offsetof(NvmeHealthLog, MediaErrors) == 160);

struct [[gnu::packed]] NvmeSelfTestResult {
  UINT8 Status;  // bits 7:4 the test (1h short, 2h extended), 3:0 its result
  UINT8 SegmentNumber;
  UINT8 ValidDiagnostics;  // bit 1: FailingLba holds an address
  UINT8 Reserved3;
  UINT64 PowerOnHours;
  UINT32 NamespaceId;
  UINT64 FailingLba;
  UINT8 StatusCodeType;
  UINT8 StatusCode;
  UINT16 VendorSpecific;
};
static_assert(sizeof(NvmeSelfTestResult) == 28);
static_assert(__builtin_offsetof(NvmeSelfTestResult, FailingLba) == 16);

struct [[gnu::packed]] NvmeSelfTestLog {
  UINT8 CurrentOperation;   // bits 3:0: 0 none, 1h short, 2h extended running
  UINT8 CurrentCompletion;  // bits 6:0: percent done of the running test
  UINT8 Reserved2[2];
  NvmeSelfTestResult Results[NvmeSelfTestResults];  // newest first
};
static_assert(sizeof(NvmeSelfTestLog) == 564);
static_assert(__builtin_offsetof(NvmeSelfTestLog, Results) == 4);

}  // namespace tarvik
