// The memory module's texts: the "Memory" string table by number, the SMBIOS
// memory type names, and the display texts of its log keys.
#pragma once

#include "efi/efi.h"

namespace tarvik {

namespace memory_text {
inline constexpr UINT64 TestName = 0;
inline constexpr UINT64 ModuleName = 1;
inline constexpr UINT64 DeviceName = 2;
inline constexpr UINT64 TotalMemory = 16;
inline constexpr UINT64 AvailableMemory = 17;
inline constexpr UINT64 AlgorithmName = 33;
inline constexpr UINT64 TotalPhysicalMemory = 48;
inline constexpr UINT64 MemoryDevice = 49;
inline constexpr UINT64 Origin = 50;
inline constexpr UINT64 MemorySize = 51;
inline constexpr UINT64 Manufacturer = 52;
inline constexpr UINT64 PartNumber = 53;
inline constexpr UINT64 SerialNumber = 54;
inline constexpr UINT64 UnknownError = 80;
inline constexpr UINT64 LessThan20Mb = 81;
inline constexpr UINT64 CannotClaim = 82;
inline constexpr UINT64 NotInUse = 83;
inline constexpr UINT64 InstalledSize = 84;
inline constexpr UINT64 MappedSize = 85;
}  // namespace memory_text

// A "Memory" text by number, from the table the module was given at
// installation; empty when the table has no such entry.
const CHAR16* MemoryText(UINT64 Id);
// The name of an SMBIOS Memory Type value ("Unkown" for any value not named).
const CHAR16* MemoryTypeName(UINT64 Type);
// The display text of a log key of the module, or null for a key it does not know.
const CHAR16* MemoryKeyText(const CHAR16* Key);

}  // namespace tarvik
