// The memory test module: "Quick Memory Test" with its one algorithm,
// "Advanced Integrity Test", on one device, "Memory Modules". Its record is
// a TestModuleProtocol, registered first in the test registry.
#pragma once

#include "registry/module_protocol.h"

namespace tarvik {

#define MEMORY_TEST_PROTOCOL_GUID \
  EFI_GUID { 0x618FDFF7, 0xE23C, 0x462D, { 0xBD, 0x03, 0x17, 0xA8, 0xE4, 0x02, 0xF6, 0x2B } }
inline constexpr EFI_GUID MemoryTestProtocolGuid = MEMORY_TEST_PROTOCOL_GUID;

// Registers the module and installs its record; reads the memory modules
// from SMBIOS. Failures print their message and leave nothing registered.
EFI_STATUS InstallMemoryTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
