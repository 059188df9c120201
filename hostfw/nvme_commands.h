// Carrying out one NVMe command on a simulated drive: the command as the
// controller received it, and how it ended.
#pragma once

#include <cstdint>

#include "hostfw/nvme_drive.h"

namespace hostfw {

// A submission queue entry as the drive sees it: the dwords the packet did
// not mark valid are 0, as the firmware leaves them.
struct NvmeCommand {
  bool admin = true;
  uint8_t opcode = 0;
  uint32_t nsid = 0;
  uint32_t cdw10 = 0, cdw11 = 0, cdw12 = 0, cdw13 = 0, cdw14 = 0, cdw15 = 0;
};

enum class NvmeCompletion {
  kDone,           // a completion entry was posted (success or an error status)
  kBadBufferSize,  // the buffer is smaller than the command's transfer; nothing ran
  kTimeout,        // the drive never answered
};

struct NvmeExecution {
  NvmeCompletion completion = NvmeCompletion::kDone;
  nvme::Status status;
  uint32_t dw0 = 0;
  uint64_t media_ns = 0;      // how long the drive worked on its media
  uint64_t needed_bytes = 0;  // the command's transfer, for kBadBufferSize
};

// Runs the command; data moves between the drive and buffer (buffer_bytes
// long) as the command says.
NvmeExecution execute_nvme_command(NvmeDrive& drive, const NvmeCommand& command, uint8_t* buffer,
                                   uint64_t buffer_bytes, uint64_t now_ns);

}  // namespace hostfw
