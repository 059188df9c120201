// The surface scan that checking and recovering share: READ VERIFY over the
// whole drive, chunk by chunk, noting every sector the drive reports as
// uncorrectable and going on right after it.
#pragma once

#include "badsector/tool_state.h"
#include "drives/lba_list.h"

namespace tarvik {

struct ScanOutcome {
  UINT64 Bad;        // uncorrectable sectors the drive reported
  UINT64 Unlisted;   // of those, sectors BadList had no room for
  bool Unanswered;   // the scan ended on a command the drive never completed
};

// Scans Device until its end, a cancel, or a failure other than an
// uncorrectable sector (two lines, then the scan ends). Every uncorrectable
// sector gets a line and a pause so that the user can follow; with a
// BadList (check and recover) it is also added there, newest first.
ScanOutcome SurfaceScan(BadSectorsTool& Tool, StorageDevice& Device, LbaList* BadList);

// Whether the drive's last failed command reported an uncorrectable sector.
bool ReportedUncorrectable(const StorageDevice& Device);

}  // namespace tarvik
