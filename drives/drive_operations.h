// What the drive tests shared by ATA and NVMe drives need of a drive, and
// nothing more: a range of blocks verified, the outcome told as passed,
// unreadable or no answer rather than as registers. A provider per drive
// kind fills the record.
#pragma once

#include "efi/efi.h"

namespace tarvik {

enum class DriveOutcome : UINT8 {
  Passed,      // every block of the range was read
  Unreadable,  // the drive reports a block of the range it cannot read
  NoAnswer,    // the drive refused the command or never completed it
};

struct DriveOperations {
  VOID* Context;              // the provider's drive
  UINT64 BlockCount;          // blocks of the drive (or namespace)
  UINT32 MaxBlocksPerCommand; // the longest range one command may cover (1 or more)
  // Verifies Blocks blocks from Lba (1 .. MaxBlocksPerCommand, inside the drive).
  DriveOutcome (*VerifyRange)(VOID* Context, UINT64 Lba, UINT32 Blocks);
};

}  // namespace tarvik
