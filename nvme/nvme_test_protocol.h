// The NVMe test module: "Quick NVMe Device Test" with six algorithms on
// every active namespace of every NVMe controller the firmware's
// pass-through reaches. Its record is a TestModuleProtocol, registered
// after the storage module.
#pragma once

#include "efi/efi.h"

namespace tarvik {

#define NVME_TEST_PROTOCOL_GUID \
  EFI_GUID { 0x4C1D6E2A, 0x9B37, 0x4F0E, { 0xA6, 0x5D, 0x31, 0xC8, 0x0E, 0x7B, 0x52, 0xD9 } }
inline constexpr EFI_GUID NvmeTestProtocolGuid = NVME_TEST_PROTOCOL_GUID;

// Finds and identifies the namespaces, registers the module and installs
// its record. A machine without an NVMe namespace gets no module, silently;
// each other failure prints its message. Nothing stays registered,
// installed or allocated when it fails.
EFI_STATUS InstallNvmeTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
