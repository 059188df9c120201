// A stand-in memory module with fixed texts: one device, one algorithm,
// eleven log rows, one summary line. Only the log writer test image uses it.
#pragma once

#include "efi/efi.h"

namespace logwriter {

EFI_STATUS InstallFixedRunModule(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace logwriter
