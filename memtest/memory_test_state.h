// The memory module's state, one record owned by the module: its
// installation (record, registry, "Memory" texts) and what its runs share.
#pragma once

#include "memtest/memory_modules.h"
#include "registry/module_installer.h"

namespace tarvik {

struct MemoryTestState {
  TestModuleInstallation Installation;
  volatile UINT8 KeepRunning;  // 1 while a run may go on; StopTest clears it
  UINT64 TotalPages;           // of the memory map, refreshed by each run
  UINT64 AvailablePages;       // free pages of the memory map
  MemoryModules Modules;       // the SMBIOS memory devices, gathered at installation
};

// Defined with the module's record and installation (memory_test_module.cpp).
extern MemoryTestState MemoryTest;

}  // namespace tarvik
