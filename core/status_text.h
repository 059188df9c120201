// English text of a status for the shared services' StatusToString.
#pragma once

#include "efi/base.h"

namespace tarvik {

// Returns a constant string, never null and never to be freed.
EFIAPI const CHAR16* StatusToString(EFI_STATUS Status);

}  // namespace tarvik
