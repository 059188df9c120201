// Wide-string helpers of the shared services. No bounds checks: callers size
// their buffers.
#pragma once

#include "efi/base.h"

namespace tarvik {

EFIAPI UINTN StrLen(const CHAR16* String);
EFIAPI CHAR16* StrCat(CHAR16* Destination, const CHAR16* Source);
EFIAPI CHAR16* StrCpy(CHAR16* Destination, const CHAR16* Source);
// 0 when equal, else the first differing unit of First minus that of Second.
EFIAPI INTN StrCmp(const CHAR16* First, const CHAR16* Second);

}  // namespace tarvik
