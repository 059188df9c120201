// The results line of the log last built, as the bytes SaveLog appends to
// \Log\Results.jsonl: the log's lines with the machine's SMBIOS strings,
// the module's names and the time of the save.
#pragma once

#include "core/pool.h"

namespace tarvik {

// Size 0 when no run made the log (nothing to append).
EFI_STATUS ResultsLineBytes(PoolPtr<UINT8>& Bytes, UINTN& Size);

}  // namespace tarvik
