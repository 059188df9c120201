// Check and recover: the surface scan, then, when the user agrees, each
// sector the scan found unreadable is rewritten with the repair pattern so
// that the drive replaces it with a spare, and read back.
#pragma once

#include "badsector/tool_state.h"

namespace tarvik {

// Operation 1 of the tool. 1000 when no bad sector is left, 1001 when some
// are, 1003 when cancelled or declined.
UINT64 CheckAndRecoverBadSectors(BadSectorsTool& Tool, StorageDevice& Device);

}  // namespace tarvik
