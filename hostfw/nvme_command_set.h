// The part of the NVM Express base and NVM command set specifications the
// simulated controllers speak: opcodes, status codes, Identify and log page
// layouts, written from the controller's side. The application has its own
// definitions; these stay apart so the simulator remains an independent
// check of them.
#pragma once

#include <cstdint>

namespace hostfw::nvme {

constexpr uint32_t kIdentifyBytes = 4096;
constexpr uint32_t kMemoryPageBytes = 4096;  // CAP.MPSMIN: MDTS counts in these
constexpr uint32_t kVersion = 0x00010400;    // VS: NVMe 1.4.0

enum AdminOpcode : uint8_t {
  kGetLogPage = 0x02,
  kIdentify = 0x06,
  kAbort = 0x08,
  kSetFeatures = 0x09,
  kGetFeatures = 0x0A,
  kFirmwareCommit = 0x10,
  kFirmwareDownload = 0x11,
  kNamespaceManagement = 0x0D,
  kDeviceSelfTest = 0x14,
  kFormatNvm = 0x80,
  kSanitize = 0x84,
};

enum IoOpcode : uint8_t {
  kFlush = 0x00,
  kWrite = 0x01,
  kRead = 0x02,
  kWriteUncorrectable = 0x04,
  kCompare = 0x05,
  kWriteZeroes = 0x08,
  kDatasetManagement = 0x09,
  kVerify = 0x0C,
};

// Identify CNS values (CDW10 bits 7:0).
constexpr uint8_t kCnsNamespace = 0x00;
constexpr uint8_t kCnsController = 0x01;
constexpr uint8_t kCnsActiveNamespaces = 0x02;

// Log identifiers (Get Log Page CDW10 bits 7:0).
constexpr uint8_t kLogErrorInformation = 0x01;
constexpr uint8_t kLogSmartHealth = 0x02;
constexpr uint8_t kLogDeviceSelfTest = 0x06;

constexpr uint32_t kErrorEntryBytes = 64;
constexpr uint32_t kErrorEntries = 64;  // ELPE + 1
constexpr uint32_t kSmartHealthBytes = 512;
constexpr uint32_t kSelfTestResultBytes = 28;
constexpr uint32_t kSelfTestResults = 20;
constexpr uint32_t kSelfTestLogBytes = 4 + kSelfTestResultBytes * kSelfTestResults;  // 564

// Device Self-test codes (CDW10 bits 3:0) and result codes of the log.
constexpr uint8_t kSelfTestShort = 0x1;
constexpr uint8_t kSelfTestExtended = 0x2;
constexpr uint8_t kSelfTestAbort = 0xF;
constexpr uint8_t kResultPassed = 0x0;
constexpr uint8_t kResultAbortedByCommand = 0x1;
constexpr uint8_t kResultFailedSegment = 0x7;

// Identify Controller bits.
constexpr uint16_t kOacsDeviceSelfTest = 1u << 4;
constexpr uint16_t kOncsDatasetManagement = 1u << 2;
constexpr uint16_t kOncsWriteZeroes = 1u << 3;
constexpr uint16_t kOncsVerify = 1u << 7;
constexpr uint8_t kLpaExtendedData = 1u << 2;  // Get Log Page offsets

// Status: type (SCT) and code (SC).
enum StatusType : uint8_t { kGeneric = 0x0, kCommandSpecific = 0x1, kMediaError = 0x2 };
struct Status {
  uint8_t type = kGeneric;
  uint8_t code = 0;
  bool ok() const { return type == kGeneric && code == 0; }
};
constexpr Status kSuccess{kGeneric, 0x00};
constexpr Status kInvalidOpcode{kGeneric, 0x01};
constexpr Status kInvalidField{kGeneric, 0x02};
constexpr Status kInvalidNamespace{kGeneric, 0x0B};
constexpr Status kLbaOutOfRange{kGeneric, 0x80};
constexpr Status kInvalidLogPage{kCommandSpecific, 0x09};
constexpr Status kSelfTestInProgress{kCommandSpecific, 0x1D};
constexpr Status kUnrecoveredReadError{kMediaError, 0x81};

// The completion entry's dword 3: status in bits 31:17 (SC 24:17, SCT 27:25).
constexpr uint32_t completion_dw3(Status s) { return uint32_t{s.code} << 17 | uint32_t{s.type & 7u} << 25; }
// The 15-bit status field as the Error Information log records it (bits 15:1).
constexpr uint16_t status_field(Status s) { return static_cast<uint16_t>(completion_dw3(s) >> 16); }

}  // namespace hostfw::nvme
