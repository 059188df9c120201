// The seek tests: single-sector READ VERIFY commands at random places
// (random seek) and alternately from both ends of the drive towards the
// other (funnel seek). Nothing is transferred to memory, nothing written.
//
// Both return 1000 passed, 1001 at the first sector that does not read (its
// LBA logged as "ERROR READ_SECTOR_ERROR <lba>") or when the drive stops
// answering ("ERROR COMMUNICATION_FAILURE"), 1002 for a drive that reports
// no capacity, 1003 when a stop request ended them. The generator is seeded
// from the time of day.
#pragma once

#include "core/diag_common.h"
#include "efi/efi.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"

namespace tarvik {

// 5000 reads at addresses drawn over the whole drive.
UINT64 RandomSeekTest(StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common);

// The first 100 sectors, then pairs closing in from both ends in steps of
// about 0.07 % to 0.14 % of the drive, then the last and the first sector.
UINT64 FunnelSeekTest(StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common);

}  // namespace tarvik
