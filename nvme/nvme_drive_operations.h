// The NVMe provider of the shared drive operations: a range verified with
// Verify where the controller offers it, read into a scratch buffer
// otherwise, in commands as long as the controller's maximum transfer size;
// the self-test run with Device Self-test (its own codes, 1h short, 2h
// extended) and followed in the self-test log; the health read from the
// SMART / Health log, its figures kept for the module's lines; the logged
// blocks from the Error Information log.
#pragma once

#include "drives/drive_operations.h"
#include "nvme/nvme_commands.h"
#include "nvme/nvme_parsers.h"

namespace tarvik {

// The longest command the module sends, whatever the controller allows.
inline constexpr UINT32 NvmeMaxCommandBytes = 2u << 20;

// Blocks per command: the controller's maximum transfer size (4 KiB pages),
// at most NvmeMaxCommandBytes, at least one block.
UINT32 NvmeBlocksPerCommand(const NvmeDevice& Device);

// A namespace as drive operations, with the read buffer a controller without
// Verify needs (unless Reads is false); valid while it lives.
class NvmeDriveOperations {
 public:
  explicit NvmeDriveOperations(const NvmeDevice& Device, bool Reads = true);
  NvmeDriveOperations(const NvmeDriveOperations&) = delete;
  NvmeDriveOperations& operator=(const NvmeDriveOperations&) = delete;

  // False when the read buffer could not be had.
  explicit operator bool() const { return Device_.Controller.VerifySupported != 0 || static_cast<bool>(Buffer_); }
  const DriveOperations& Operations() const { return Operations_; }
  // The figures of the health log the last ReadHealth read.
  const NvmeHealthFacts& Health() const { return Health_; }

 private:
  static DriveOutcome Verify(VOID* Context, UINT64 Lba, UINT32 Blocks);
  static DriveOutcome StartSelfTest(VOID* Context, UINT8 Code);
  static SelfTestPoll PollSelfTest(VOID* Context);
  static DriveOutcome AbortSelfTest(VOID* Context);
  static HealthVerdict ReadHealth(VOID* Context);
  static DriveOutcome ListLoggedLbas(VOID* Context, DriveRun& Run, LbaList& Lbas);

  const NvmeDevice& Device_;
  NvmePages Buffer_;
  DriveOperations Operations_;
  UINT8 Started_ = 0;  // the self-test code started; 0 before
  UINT8 Percent_ = 0;  // of the running self-test, at the last poll
  UINT64 MissingPolls_ = 0;
  NvmeHealthFacts Health_{};
};

}  // namespace tarvik
