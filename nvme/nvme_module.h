// The NVMe module's state, one record for the module's installed life: what
// its installation keeps (record, registry, "NVMe" texts), the namespaces it
// found and the state of the run in progress.
#pragma once

#include "drives/drive_run.h"
#include "nvme/nvme_device.h"
#include "registry/module_installer.h"

namespace tarvik {

struct NvmeModule {
  TestModuleInstallation Installation;  // Strings / StringCount: the "NVMe" table
  NvmeDrives Drives;
  DriveRun Run;
};

// The module behind This, or null when This is not the installed NVMe record.
NvmeModule* NvmeModuleOf(const TestModuleProtocol* This);

// Numbers of the "NVMe" texts.
namespace nvme_text {
inline constexpr UINT64 TestName = 0;
inline constexpr UINT64 ModuleName = 1;
inline constexpr UINT64 Device = 16;
inline constexpr UINT64 FirstAlgorithm = 33;  // 33-38: the algorithms in order
inline constexpr UINT64 ModelNumber = 48;
inline constexpr UINT64 SerialNumber = 49;
inline constexpr UINT64 FirmwareRevision = 50;
inline constexpr UINT64 Size = 51;
inline constexpr UINT64 LbaSize = 52;
inline constexpr UINT64 Version = 53;
inline constexpr UINT64 Temperature = 54;
inline constexpr UINT64 PercentageUsed = 55;
inline constexpr UINT64 PowerOnHours = 56;
inline constexpr UINT64 Namespace = 57;
inline constexpr UINT64 NotReported = 58;
inline constexpr UINT64 FailedToRun = 80;
inline constexpr UINT64 ProblemsFound = 88;
}  // namespace nvme_text

// An "NVMe" text by number; empty when the table has no such entry.
const CHAR16* NvmeText(const NvmeModule& Module, UINT64 Id);

}  // namespace tarvik
