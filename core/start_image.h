// Loading and starting an image file that lies on the application's own device.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// EFI_SUCCESS when the image was loaded and started and returned success,
// else EFI_ABORTED.
EFIAPI EFI_STATUS StartImageFromFile(EFI_HANDLE ImageHandle, const CHAR16* FileName);

}  // namespace tarvik
