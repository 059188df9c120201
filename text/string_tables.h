// The texts of the string tables, kept sparse: an identifier that is
// not listed holds the empty string.
#pragma once

#include "efi/base.h"

namespace tarvik {

struct TableText {
  UINT32 Identifier;
  const CHAR16* Text;
};

struct StringTableSource {
  const CHAR16* Name;       // requests name a table by its first three characters
  UINT64 Count;             // identifiers 0 .. Count - 1
  const TableText* Texts;   // ascending identifiers, all below Count
  UINTN TextCount;
};

inline constexpr UINTN StringTableSourceCount = 4;
// Interface, Memory, Storage, NVMe.
extern const StringTableSource StringTableSources[StringTableSourceCount];

}  // namespace tarvik
