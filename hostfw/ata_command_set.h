// The part of the ATA command set (ATA8-ACS) the simulated drives speak:
// registers, commands, SMART, logs and self-tests, written from the drive's
// side. The application has its own definitions; these stay apart so the
// simulator remains an independent check of them.
#pragma once

#include <cstdint>

namespace hostfw::ata {

constexpr uint32_t kPage = 512;  // IDENTIFY data, SMART pages and log pages

// Status and error registers.
constexpr uint8_t kStatusReady = 0x50;  // DRDY | DSC
constexpr uint8_t kStatusError = 0x51;  // DRDY | DSC | ERR
constexpr uint8_t kErrorAbort = 0x04;        // ABRT: the command was refused
constexpr uint8_t kErrorIdNotFound = 0x10;   // IDNF: no such sector
constexpr uint8_t kErrorUncorrectable = 0x40;  // UNC: the data cannot be read

enum Command : uint8_t {
  kReadLogExt = 0x2F,
  kWriteSectors = 0x30,
  kWriteSectorsExt = 0x34,
  kReadVerify = 0x40,
  kReadVerifyExt = 0x42,
  kWriteUncorrectableExt = 0x45,
  kIdentifyPacketDevice = 0xA1,
  kSmart = 0xB0,
  kIdentifyDevice = 0xEC,
};

enum SmartFeature : uint8_t {
  kSmartReadData = 0xD0,
  kSmartReadThresholds = 0xD1,
  kSmartExecuteOffline = 0xD4,
  kSmartReadLog = 0xD5,
  kSmartEnable = 0xD8,
  kSmartDisable = 0xD9,
  kSmartReturnStatus = 0xDA,
};

// SMART commands carry this signature in LBA mid / high; RETURN STATUS
// answers with it, or with the exceeded pair when a threshold is crossed.
constexpr uint8_t kSmartLbaMid = 0x4F;
constexpr uint8_t kSmartLbaHigh = 0xC2;
constexpr uint8_t kSmartExceededLbaMid = 0xF4;
constexpr uint8_t kSmartExceededLbaHigh = 0x2C;

// A packet (ATAPI) device aborts IDENTIFY DEVICE with this in LBA mid / high.
constexpr uint8_t kPacketLbaMid = 0x14;
constexpr uint8_t kPacketLbaHigh = 0xEB;

// WRITE UNCORRECTABLE EXT modes.
constexpr uint8_t kPseudoUncorrectable = 0x55;
constexpr uint8_t kFlaggedUncorrectable = 0xAA;

// SMART EXECUTE OFF-LINE IMMEDIATE subcommands.
constexpr uint8_t kOfflineDataCollection = 0x00;
constexpr uint8_t kShortSelfTest = 0x01;
constexpr uint8_t kExtendedSelfTest = 0x02;
constexpr uint8_t kConveyanceSelfTest = 0x03;
constexpr uint8_t kVendorDriveSelfTest = 0x50;  // vendor-specific
constexpr uint8_t kAbortSelfTest = 0x7F;

// Self-test execution status (high nibble of SMART data byte 363 and of a
// self-test log entry's status byte).
constexpr uint8_t kTestPassed = 0x0;
constexpr uint8_t kTestAbortedByHost = 0x1;
constexpr uint8_t kTestInterruptedByReset = 0x2;
constexpr uint8_t kTestServoFailure = 0x6;
constexpr uint8_t kTestReadFailure = 0x7;
constexpr uint8_t kTestInProgress = 0xF;

// Log addresses.
constexpr uint8_t kLogDirectory = 0x00;
constexpr uint8_t kSummaryErrorLog = 0x01;
constexpr uint8_t kComprehensiveErrorLog = 0x02;
constexpr uint8_t kExtErrorLog = 0x03;
constexpr uint8_t kSelfTestLog = 0x06;
constexpr uint8_t kExtSelfTestLog = 0x07;

// Entries per page and entry sizes of the logs.
constexpr uint32_t kErrorEntries = 5, kErrorEntryBytes = 90;          // logs 0x01, 0x02
constexpr uint32_t kExtErrorEntries = 4, kExtErrorEntryBytes = 124;   // log 0x03
constexpr uint32_t kSelfTestEntries = 21, kSelfTestEntryBytes = 24;   // log 0x06
constexpr uint32_t kExtSelfTestEntries = 19, kExtSelfTestEntryBytes = 26;  // log 0x07

constexpr uint64_t kNoFailingLba = 0xFFFFFFFFFFFFull;

}  // namespace hostfw::ata
