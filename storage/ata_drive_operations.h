// The ATA provider of the shared drive operations: a range verified with
// READ VERIFY SECTORS (EXT). An error the drive reports is an unreadable
// block; a command it never completed is no answer.
#pragma once

#include "drives/drive_operations.h"
#include "storage/storage_device.h"

namespace tarvik {

// Device as drive operations, SectorsPerCommand sectors a command at most.
// Device must outlive the record.
DriveOperations AtaDriveOperations(StorageDevice& Device, UINT32 SectorsPerCommand);

}  // namespace tarvik
