// Firmware tables kept by the entry routine and read by every module.
#pragma once

#include "efi/efi.h"

namespace tarvik {

struct DiagCommonProtocol;

extern EFI_SYSTEM_TABLE* gST;
extern EFI_BOOT_SERVICES* gBS;
extern EFI_RUNTIME_SERVICES* gRT;
extern EFI_HANDLE gImageHandle;
// The shared-services record while it is installed, else null.
extern DiagCommonProtocol* gDiagCommon;

}  // namespace tarvik
