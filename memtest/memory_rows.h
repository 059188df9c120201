// What the memory module shows beside its test: the run information, the
// system information and the log rows, and its summary line. Every text is
// a new pool buffer; a getter checks its out-pointers (EFI_ABORTED), then its
// row (EFI_INVALID_PARAMETER).
#pragma once

#include "efi/efi.h"
#include "memtest/memory_test_state.h"

namespace tarvik {

inline constexpr UINT64 MemoryRunInfoRows = 2;
inline UINT64 MemorySystemInfoRowCount() { return MemoryTest.Modules.Count * 7 + 1; }
inline UINT64 MemoryLogRowCount() { return MemoryTest.Modules.Count * 8 + 3; }

EFI_STATUS MemoryRunInfoRow(UINT64 Row, UINT64 DeviceIndex, CHAR16** Label, CHAR16** Value);
EFI_STATUS MemorySystemInfoRow(UINT64 Row, CHAR16** Label, CHAR16** Value);
EFI_STATUS MemoryLogRow(UINT64 Row, CHAR16** Key, CHAR16** Value);
EFI_STATUS MemorySummaryLine(UINT64 Index, CHAR16** Text);

}  // namespace tarvik
