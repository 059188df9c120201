// Command decoding: one EFI_ATA_PASS_THRU packet carried out on one drive,
// as the drive sees the command block, the data and the registers it
// returns in the status block.
#pragma once

#include <cstdint>

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"
#include "hostfw/ata_drive.h"

namespace hostfw {

enum class AtaCompletion {
  kDone,           // the command completed; the status block says so
  kError,          // the command ended with ERR; the status block says why
  kBadBufferSize,  // the buffer cannot hold the command's data; nothing ran
  kTimeout,        // the drive never answers
};

// How a command ended, and how long the drive spent on its media: the
// caller lets that much machine time pass before it answers.
struct AtaExecution {
  AtaCompletion completion = AtaCompletion::kDone;
  uint64_t media_ns = 0;
};

// The packet has been checked for shape (blocks present, lengths with
// buffers, a protocol the controller carries). Fills the status block and
// the transfer lengths.
AtaExecution execute_ata_command(AtaDrive& drive, EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, uint64_t now_ns);

// Whether the controller carries out a packet of that protocol.
bool ata_protocol_carried(UINT8 protocol);

}  // namespace hostfw
