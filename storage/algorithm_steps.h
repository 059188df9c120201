// Steps the storage algorithms share: telling a refused command from a
// drive that no longer answers, and switching SMART on for a test.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"

namespace tarvik {

// Whether a command layer result is a success: 0 or a warning, neither an
// error status nor the failed-command code.
bool CommandSucceeded(UINT64 Status);

// After a failed command: true when the drive finished it with an error of
// its own (its status block shows ERR or an error code), false when it did
// not answer at all (a timeout, a drive gone from its port), which leaves no
// error in the status block.
bool DriveAnswered(const StorageDevice& Device);

// After a failed command: when the drive did not answer, logs
// "ERROR COMMUNICATION_FAILURE" and returns true.
bool NoteSilentDrive(StorageRun& Run, const StorageDevice& Device);

// A drive without a capacity (no 48-bit address feature set) gives the
// surface tests nothing to aim at: logs "WARNING CANT_PERFORM_TEST" and
// returns false.
bool HasCapacity(StorageRun& Run, const StorageDevice& Device);

// Switches SMART on for a drive that supports it with SMART off: logs the
// disabled state with DisabledFormat ("MESSAGE %s" or "WARNING %s") and
// "MESSAGE ENABLING_SMART", sends SMART ENABLE OPERATIONS and on success sets
// Run.SmartEnabledByTest. On failure logs "WARNING CANT_ENABLE_SMART" (and
// the communication failure when the drive did not answer) and returns
// false. Does nothing and returns true when SMART is already on.
bool EnableSmartIfNeeded(StorageRun& Run, StorageDevice& Device, const CHAR16* DisabledFormat);

}  // namespace tarvik
