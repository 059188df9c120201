#include "core/pool_text.h"

#include "core/format.h"
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

EFIAPI EFI_STATUS FormatTextToPool(UINTN BufferBytes, CHAR16** Text, const CHAR16* Format, ...) {
  if (Text == nullptr || BufferBytes < sizeof(CHAR16)) return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> Buffer;
  EFI_STATUS Status = Buffer.Allocate(BufferBytes);
  if (EFI_ERROR(Status)) return Status;
  gBS->SetMem(Buffer.get(), BufferBytes, 0);
  VA_LIST Args;
  VA_START(Args, Format);
  FormatV(Buffer.get(), BufferBytes / sizeof(CHAR16), Format, Args);
  VA_END(Args);
  *Text = Buffer.release();
  return EFI_SUCCESS;
}

}  // namespace tarvik
