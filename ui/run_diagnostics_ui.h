// The user interface's entry, called by start-up once every service is installed.
#pragma once

#include "efi/efi.h"

namespace tarvik {

EFI_STATUS RunDiagnosticsUi(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
