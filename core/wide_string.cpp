#include "core/wide_string.h"

namespace tarvik {

EFIAPI UINTN StrLen(const CHAR16* String) {
  UINTN Length = 0;
  while (String[Length] != 0) ++Length;
  return Length;
}

EFIAPI CHAR16* StrCpy(CHAR16* Destination, const CHAR16* Source) {
  CHAR16* Out = Destination;
  while ((*Out++ = *Source++) != 0) {
  }
  return Destination;
}

EFIAPI CHAR16* StrCat(CHAR16* Destination, const CHAR16* Source) {
  StrCpy(Destination + StrLen(Destination), Source);
  return Destination;
}

EFIAPI INTN StrCmp(const CHAR16* First, const CHAR16* Second) {
  while (*First != 0 && *First == *Second) {
    ++First;
    ++Second;
  }
  return (INTN)(UINT16)*First - (INTN)(UINT16)*Second;
}

}  // namespace tarvik
