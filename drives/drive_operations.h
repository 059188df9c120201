// What the drive tests shared by ATA and NVMe drives need of a drive, and
// nothing more: a range of blocks verified, a self-test started, polled and
// aborted, the health verdict read, the blocks the drive's logs name listed;
// outcomes told as passed, unreadable, no answer rather than as registers.
// A provider per drive kind fills the record.
#pragma once

#include "efi/efi.h"

namespace tarvik {

class LbaList;
struct DriveRun;

enum class DriveOutcome : UINT8 {
  Passed,      // every block of the range was read; the command was done; the self-test passed
  Unreadable,  // the drive reports a block it cannot read; the self-test found an error
  NoAnswer,    // the drive never completed the command (a verify it refused counts here too)
  Refused,     // the drive refused the command
  Running,     // the self-test is still running
};

// A self-test as one poll of the drive finds it.
struct SelfTestPoll {
  DriveOutcome Outcome;
  UINT8 Percent = 0;  // done so far, while running (0-99)
  bool LbaKnown = false;
  UINT64 FailingLba = 0;  // the first block the failed self-test could not read
};

// What the drive says of its own health.
enum class HealthVerdict : UINT8 { Good, Failing, NotOffered, NoAnswer };

struct DriveOperations {
  VOID* Context;              // the provider's drive
  UINT64 BlockCount;          // blocks of the drive (or namespace)
  UINT32 MaxBlocksPerCommand; // the longest range one command may cover (1 or more)
  // Verifies Blocks blocks from Lba (1 .. MaxBlocksPerCommand, inside the drive).
  DriveOutcome (*VerifyRange)(VOID* Context, UINT64 Lba, UINT32 Blocks);
  // Starts the self-test the drive kind's own Code names.
  DriveOutcome (*StartSelfTest)(VOID* Context, UINT8 Code) = nullptr;
  SelfTestPoll (*PollSelfTest)(VOID* Context) = nullptr;
  DriveOutcome (*AbortSelfTest)(VOID* Context) = nullptr;
  HealthVerdict (*ReadHealth)(VOID* Context) = nullptr;
  // Adds the blocks on the drive that its logs name to Lbas, the newest at
  // the head. Refused when no log could be read.
  DriveOutcome (*ListLoggedLbas)(VOID* Context, DriveRun& Run, LbaList& Lbas) = nullptr;
};

}  // namespace tarvik
