// Write uncorrectable: marks five random sectors of a drive unreadable
// (pseudo-uncorrectable, logged by the drive) so that the scan and the
// repair can be tried on a healthy drive. Not offered to the user.
#pragma once

#include "badsector/tool_state.h"

namespace tarvik {

// Operation 2 of the tool. 1000 when all five sectors were marked, 1004 at
// the first the drive refused.
UINT64 WriteUncorrectableSectors(BadSectorsTool& Tool, StorageDevice& Device);

// The sector to mark, 1 to TotalSectors - 1, from the shared generator: one
// draw on a drive below 2^31 sectors, several combined beyond, so that the
// whole drive is reached.
UINT64 RandomSectorToMark(const DiagCommonProtocol& Common, UINT64 TotalSectors);

}  // namespace tarvik
