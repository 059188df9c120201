// A scripted ATA drive for the drive-data fuzz targets: installed once on the
// process's simulated machine beside its own drives, it answers every
// command from the current input. Each use finds and identifies the drives
// afresh, the way the storage module does, and checks that no pool or page
// outlives it.
#pragma once

#include <functional>

#include "storage/storage_module.h"
#include "tests/fuzz/input_slice.h"
#include "tests/support/fake_ata_pass_thru.h"

namespace fuzz_support {

using Answer = std::function<testing_support::AtaReply(const EFI_ATA_COMMAND_BLOCK&)>;

// Answers every command to the scripted drive with Answer; once the drives
// are found and identified, Use works on a storage module's record holding
// them (no texts, no installation), given the scripted drive's index in it.
// Nothing is used when the scripted drive is not among them (its IDENTIFY
// data did not make it a drive, or an allocation failed). The FailPool-th
// pool allocation from the start fails (none for 0). Aborts when a pool or
// a page is left behind.
void WithScriptedDrive(uint8_t FailPool, const Answer& Answer,
                       const std::function<void(tarvik::StorageModule&, UINT64)>& Use);

}  // namespace fuzz_support
