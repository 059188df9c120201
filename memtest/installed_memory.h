// Memory that is installed but not in use: the SMBIOS memory devices add up
// to more than the firmware maps as memory, by at least the smallest
// installed module. A module is then most likely dead or unseated, and the
// memory test says so and fails rather than pass on what is left.
#pragma once

#include "memtest/memory_modules.h"
#include "registry/module_protocol.h"

namespace tarvik {

struct InstalledMemory {
  BOOLEAN Known = FALSE;  // every module's size could be read
  UINT64 InstalledMb = 0;
  UINT64 SmallestMb = 0;
  UINT64 MappedMb = 0;

  BOOLEAN ModuleNotInUse() const {
    return Known && SmallestMb > 0 && InstalledMb > MappedMb && InstalledMb - MappedMb >= SmallestMb;
  }
};

// Megabytes of an SMBIOS Memory Device Size field, or 0 when it does not
// say (unknown, or in the extended field).
UINT64 ModuleSizeMb(UINT64 SizeField);

// The modules' sizes beside MappedMb.
InstalledMemory CompareInstalledMemory(const MemoryModules& Modules, UINT64 MappedMb);

// Megabytes of memory in the map: every region but reserved, unusable and
// memory-mapped I/O ones. Map holds Entries descriptors DescriptorSize apart.
UINT64 MappedMemoryMb(const UINT8* Map, UINTN Entries, UINTN DescriptorSize);

// After a run that ended Result: when a module is not in use, logs the
// sizes and the slots that hold modules, shows a notice, and answers
// TEST_RESULT_FAILED for a run that passed. Any other case keeps Result.
UINT64 CheckInstalledMemory(const MemoryModules& Modules, TestModuleProtocol* This, TEST_MESSAGE_CALLBACK Message,
                            UINT64 Result);

}  // namespace tarvik
