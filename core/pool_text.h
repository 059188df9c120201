// Texts handed out through out-parameters: each is a new pool buffer
// (EfiBootServicesData) that the caller frees with FreePool.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// Copy receives a buffer of exactly (length + 1) characters holding Source.
// A null Source gives an empty text.
EFI_STATUS CopyTextToPool(const CHAR16* Source, CHAR16** Copy);

// Frees the first Count texts of a pool array of texts (null ones are
// skipped), then the array; sets Texts to null. A null array frees nothing.
VOID FreeTextArray(CHAR16**& Texts, UINT64 Count);

}  // namespace tarvik
