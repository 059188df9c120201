// What the storage module shows beside its tests: the run-screen row of a
// drive, its display name, its 19 system-information rows and its 16 log
// rows. Every text is a new pool buffer the caller frees; a getter checks its
// out-pointers (EFI_ABORTED) before its row or drive (EFI_INVALID_PARAMETER).
#pragma once

#include "storage/storage_module.h"

namespace tarvik {

inline constexpr UINT64 StorageRunInfoRows = 1;
inline constexpr UINT64 SystemInfoRowsPerDrive = 19;
inline constexpr UINT64 LogRowsPerDrive = 16;

EFI_STATUS StorageRunInfoRow(const StorageModule& Module, UINT64 Row, UINT64 DeviceIndex, CHAR16** Label,
                             CHAR16** Value);
// "Manufacturer Model", cut at 19 characters.
EFI_STATUS StorageDeviceName(const StorageModule& Module, UINT64 DeviceIndex, CHAR16** Name);
// Row = drive x 19 + row of the drive. The drive is identified afresh first;
// a failed identification returns its status.
EFI_STATUS StorageSystemInfoRow(StorageModule& Module, UINT64 Row, CHAR16** Label, CHAR16** Value);
// Row = drive x 16 + row of the drive, from the identification at hand.
EFI_STATUS StorageLogRow(const StorageModule& Module, UINT64 Row, CHAR16** Key, CHAR16** Value);

}  // namespace tarvik
