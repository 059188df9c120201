// What the NVMe module shows beside its tests: the run-screen row of a
// namespace, its display name, its system-information rows and its log
// rows. Every text is a new pool buffer the caller frees; a getter checks
// its out-pointers (EFI_ABORTED) before its row or device
// (EFI_INVALID_PARAMETER).
#pragma once

#include "nvme/nvme_module.h"

namespace tarvik {

inline constexpr UINT64 NvmeRunInfoRows = 1;
inline constexpr UINT64 NvmeSystemInfoRowsPerDrive = 11;
inline constexpr UINT64 NvmeLogRowsPerDrive = 10;

EFI_STATUS NvmeRunInfoRow(const NvmeModule& Module, UINT64 Row, UINT64 DeviceIndex, CHAR16** Label, CHAR16** Value);
// The model, cut at 19 characters.
EFI_STATUS NvmeDeviceName(const NvmeModule& Module, UINT64 DeviceIndex, CHAR16** Name);
// Row = drive x 11 + row of the drive. The first row of a drive identifies
// it afresh, the health rows read the health log (" - " when refused).
EFI_STATUS NvmeSystemInfoRow(NvmeModule& Module, UINT64 Row, CHAR16** Label, CHAR16** Value);
// Row = drive x 10 + row of the drive, from the identification at hand.
EFI_STATUS NvmeLogRow(const NvmeModule& Module, UINT64 Row, CHAR16** Key, CHAR16** Value);

}  // namespace tarvik
