#include "core/pool_text.h"

#include "core/globals.h"
#include "core/pool.h"
#include "core/wide_string.h"

namespace tarvik {

EFI_STATUS CopyTextToPool(const CHAR16* Source, CHAR16** Copy) {
  if (Copy == nullptr) return EFI_INVALID_PARAMETER;
  const UINTN Length = Source == nullptr ? 0 : StrLen(Source);
  PoolPtr<CHAR16> Buffer;
  EFI_STATUS Status = Buffer.Allocate((Length + 1) * sizeof(CHAR16));
  if (EFI_ERROR(Status)) return Status;
  for (UINTN I = 0; I < Length; ++I) Buffer.get()[I] = Source[I];
  Buffer.get()[Length] = 0;
  *Copy = Buffer.release();
  return EFI_SUCCESS;
}

VOID FreeTextArray(CHAR16**& Texts, UINT64 Count) {
  if (Texts == nullptr) return;
  for (UINT64 I = 0; I < Count; ++I)
    if (Texts[I] != nullptr) gBS->FreePool(Texts[I]);
  gBS->FreePool(Texts);
  Texts = nullptr;
}

}  // namespace tarvik
