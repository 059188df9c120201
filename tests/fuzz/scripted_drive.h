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

// A drive target's input: the first byte names the pool allocation to fail
// (0: none), the rest is the drive's data.
struct DriveInput {
  DriveInput(const uint8_t* Input, size_t InputSize)
      : FailPool(InputSize > 0 ? Input[0] : 0), Data(InputSize > 0 ? Input + 1 : Input),
        Size(InputSize > 0 ? InputSize - 1 : 0) {}
  uint8_t FailPool;
  const uint8_t* Data;
  size_t Size;
};

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
