// The installed memory modules as the SMBIOS Memory Device structures
// (type 17) describe them, gathered once when the module starts.
#pragma once

#include "efi/efi.h"

namespace tarvik {

struct MemoryModules {
  UINT64 Count;             // populated devices (Size not 0)
  UINT64* SizeMb;           // the Size field as read, taken as megabytes
  UINT64* SpeedMhz;
  UINT64* Type;             // SMBIOS Memory Type
  CHAR16** Manufacturer;
  CHAR16** SerialNumber;
  CHAR16** PartNumber;
  CHAR16** Locator;         // the slot's name on the board (Device Locator)
};

// Fills Modules; no SMBIOS service or no populated device leaves it empty.
VOID CollectMemoryModules(MemoryModules& Modules);
VOID ReleaseMemoryModules(MemoryModules& Modules);

// Whole gigabytes of module M, and of all modules.
inline UINT64 ModuleGigabytes(const MemoryModules& Modules, UINT64 M) { return Modules.SizeMb[M] / 1024; }
UINT64 TotalModuleGigabytes(const MemoryModules& Modules);

}  // namespace tarvik
