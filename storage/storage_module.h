// The storage module's state, one record for the module's installed life:
// what its installation keeps (record, registry, "Storage" texts), the drives
// it found, and the state of the algorithm run in progress. The record's
// slots reach it through StorageModuleOf.
#pragma once

#include "registry/module_installer.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"
#include "storage/storage_test_protocol.h"

namespace tarvik {

struct StorageModule {
  TestModuleInstallation Installation;  // Strings / StringCount: the "Storage" table
  StorageDrives Drives;
  StorageRun Run;  // Running, SmartEnabledByTest, Progress and the two callbacks
  RotatingDriveToolPublisher PublishTool;  // the bad-sector tool's publication, from start-up
};

// The module behind This, or null when This is not the installed storage
// record.
StorageModule* StorageModuleOf(const TestModuleProtocol* This);

// Numbers of the "Storage" texts the module shows.
namespace storage_text {
inline constexpr UINT64 TestName = 0;
inline constexpr UINT64 ModuleName = 1;
inline constexpr UINT64 Device = 16;
inline constexpr UINT64 UnknownAlgorithm = 32;
inline constexpr UINT64 SmartStatus = 33;
inline constexpr UINT64 SmartShortSelfTest = 34;
inline constexpr UINT64 DriveSelfTest = 35;
inline constexpr UINT64 RandomSeek = 36;
inline constexpr UINT64 FunnelSeek = 37;
inline constexpr UINT64 TargetedRead = 38;
inline constexpr UINT64 Manufacturer = 48;
inline constexpr UINT64 ModelNumber = 49;
inline constexpr UINT64 SerialNumber = 50;
inline constexpr UINT64 FirmwareRevision = 51;
inline constexpr UINT64 Size = 52;
inline constexpr UINT64 CacheSize = 53;
inline constexpr UINT64 RotationRate = 54;
inline constexpr UINT64 NotReported = 55;
inline constexpr UINT64 Temperature = 56;
inline constexpr UINT64 PhysicalSectorSize = 57;
inline constexpr UINT64 LogicalSectorSize = 59;
inline constexpr UINT64 LogicalSectors = 60;
inline constexpr UINT64 Sectors = 61;
inline constexpr UINT64 SupportedStandards = 62;
inline constexpr UINT64 Supported = 63;
inline constexpr UINT64 NotSupported = 64;
inline constexpr UINT64 StandardVersion = 65;
inline constexpr UINT64 NonRotating = 66;
inline constexpr UINT64 FailedToRun = 80;
inline constexpr UINT64 ProblemsFound = 88;
}  // namespace storage_text

// A "Storage" text by number; empty when the table has no such entry.
const CHAR16* StorageText(const StorageModule& Module, UINT64 Id);

}  // namespace tarvik
