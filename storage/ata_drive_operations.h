// The ATA provider of the shared drive operations: a range verified with
// READ VERIFY SECTORS (EXT), the self-test run through SMART EXECUTE
// OFF-LINE IMMEDIATE and followed in SMART READ DATA's execution status, the
// health read with SMART RETURN STATUS. An error the drive reports is a
// refusal (an unreadable block for a verify); a command it never completed
// is no answer.
#pragma once

#include "drives/drive_operations.h"
#include "storage/storage_device.h"

namespace tarvik {

// Device as drive operations, SectorsPerCommand sectors a command at most;
// a self-test is started with its SMART EXECUTE OFF-LINE subcommand. Device
// must outlive the record.
DriveOperations AtaDriveOperations(StorageDevice& Device, UINT32 SectorsPerCommand);

}  // namespace tarvik
