// The targeted read test: collects the sector addresses that the drive's own
// error and self-test logs name, then reads the 62 sectors around each.
//
// Result: 1000 when every sector read, 1001 when some did not (one
// "ERROR READ_SECTOR_ERROR <lba>" line per sector, newest first; the test
// stops at the fifth failed read) or the drive stopped answering ("ERROR
// COMMUNICATION_FAILURE"), 1002 when the drive has no SMART or its logs name
// nothing ("WARNING CANT_PERFORM_TEST" unless every log reader failed), 1003
// when a stop request ended it, 1004 when SMART cannot be switched on.
#pragma once

#include "drives/drive_operations.h"
#include "efi/efi.h"
#include "storage/drive_logs.h"
#include "drives/lba_list.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"

namespace tarvik {

// Extra status of a log reader: the drive did not answer a log command.
inline constexpr UINT64 LogReaderNoAnswer = EFI_NO_RESPONSE;

UINT64 TargetedReadTest(StorageRun& Run, StorageDevice& Device);

// Pages of a log as the SMART and general-purpose log directories give them
// (the larger of the two); -1 when neither gives a count.
INT16 GetLogPageCount(StorageDevice& Device, DriveLog Log);

// Reads every page of Log (SMART READ LOG for logs 0x01, 0x02, 0x06, READ
// LOG EXT for 0x03, 0x07) and adds each LBA its entries name that lies on
// the drive to List, pausing 10 ms a page and stopping between entries on a
// stop request. 0 also when no directory names the log; otherwise the log
// read's status, ATA_COMMAND_FAILED when the list cannot grow,
// EFI_OUT_OF_RESOURCES without pages, LogReaderNoAnswer for a silent drive.
UINT64 ReadLogCandidates(DriveRun& Run, StorageDevice& Device, DriveLog Log, LbaList& List);

// The candidates of every log the targeted read collects from, the progress
// before each reader reported (5 to 40): NoAnswer as soon as the drive stops
// answering, Refused when every reader failed.
DriveOutcome ListLogCandidates(DriveRun& Run, StorageDevice& Device, LbaList& List);

}  // namespace tarvik
