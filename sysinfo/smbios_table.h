// The SMBIOS structure table as firmware publishes it, walked with bounds:
// the table is firmware data and may be truncated or malformed, so no read
// goes past its length and a broken structure ends the walk.
#pragma once

#include "efi/base.h"

namespace tarvik {

struct SmbiosTable {
  const UINT8* Start = nullptr;
  UINTN Length = 0;     // bytes: the 2.x Structure Table Length, or the 3.0 maximum size
  UINT16 Structures = 0;  // the 2.x entry point's Number of SMBIOS Structures
  BOOLEAN UntilEndOfTable = FALSE;  // 3.0: no count; the end-of-table structure ends the walk
};

// The Instance-th structure (from 0) of Type in table order, or null. A
// walk until the end of the table stops after the first type 127.
const UINT8* FindSmbiosStructure(const SmbiosTable& Table, UINT8 Type, UINT32 Instance);

// String Number (from 1) of the structure at Record: its first byte and its
// length, terminator excluded. Number 0, a number beyond the last string, a
// formatted area shorter than the header, or a string set that runs past the
// table give an empty string. FALSE when Record does not leave room for a
// header inside the table.
BOOLEAN FindSmbiosString(const SmbiosTable& Table, const UINT8* Record, UINTN Number, const UINT8** Text,
                         UINTN* Length);

}  // namespace tarvik
