// One NVMe drive as the application reaches it: an NVMe controller on a
// handle of its own with EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL and its device
// path, its namespaces numbered from 1.
//
// The controller answers the admin commands Identify (CNS 00h, 01h, 02h),
// Get Log Page (01h, 02h, 06h), Device Self-test (when the drive has it),
// Abort, Get Features and Set Features, and the I/O commands Read, Verify
// (when the drive has it), Write, Write Zeroes, Dataset Management and
// Flush; every other opcode ends with Invalid Command Opcode. Block
// contents are not stored: a Read returns each block's LBA in its first
// eight bytes, and what a drive keeps per block is whether it reads back.
//
// Completion conventions of PassThru (the firmware's, as OVMF's NVMe driver
// behaves):
//   EFI_SUCCESS           the command completed with status 0; the packet's
//                         completion holds the entry (DW0 the result, DW3
//                         the command identifier, phase and status).
//   EFI_DEVICE_ERROR      the command completed with an error status; the
//                         completion holds it (SCT in DW3 bits 27:25, SC in
//                         24:17).
//   EFI_TIMEOUT           the drive never answered; the packet's
//                         CommandTimeout passed in machine time.
//   EFI_BAD_BUFFER_SIZE   the transfer buffer is smaller than the command's
//                         transfer; nothing was sent, TransferLength says how
//                         much it needs.
//   EFI_INVALID_PARAMETER malformed packet (no command or completion, an
//                         unknown queue type, a length without a buffer, a
//                         buffer not aligned to IoAlign), or a NamespaceId
//                         that is neither 0, 0xFFFFFFFF nor a namespace.
//   EFI_UNSUPPORTED       an admin command that creates or deletes queues,
//                         which the firmware keeps to itself.
// The command acts on its own Nsid (as the firmware copies it into the
// submission entry); only the dwords its Flags mark valid reach the drive,
// the others are 0. Commands are blocking; an Event is ignored. A drive with
// a media rate keeps PassThru waiting while a Read, Verify or write passes
// over its blocks.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "efi/efi.h"
#include "efi/protocol/nvm_express_pass_thru.h"
#include "hostfw/nvme_drive.h"
#include "hostfw/profile.h"
#include "hostfw/protocol_thunk.h"

namespace hostfw {

class Machine;

class NvmeController {
 public:
  // Installs the controller on a new handle with its device path; index
  // numbers the machine's NVMe drives from 0 (their PCI slots).
  NvmeController(Machine& machine, const NvmeInfo& drive, size_t index);
  ~NvmeController();
  NvmeController(const NvmeController&) = delete;
  NvmeController& operator=(const NvmeController&) = delete;

  EFI_HANDLE handle() const { return handle_; }
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* protocol() { return &protocol_.protocol; }
  Events& events() const;

  // ---- For tests: what the drive was sent, whether an LBA reads back now,
  // how long a self-test (1h short, 2h extended) runs in nanoseconds, and
  // silence after `more` further commands (stop_answering_after, counted
  // from now).
  const NvmeCommandCounts& counts() const { return drive_.counts; }
  bool lba_is_bad(uint32_t nsid, uint64_t lba) const { return drive_.first_bad(nsid, lba, 1).has_value(); }
  uint64_t self_test_duration_ns(uint8_t code) const { return drive_.self_test_ns(code); }
  void stop_answering_after(uint64_t more) { drive_.info.stop_answering_after = drive_.counts.total + more; }

  // ---- The protocol's operations (reached through EFIAPI thunks) -----------
  EFI_STATUS pass_thru(UINT32 namespace_id, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET* packet);
  EFI_STATUS get_next_namespace(UINT32* namespace_id) const;
  EFI_STATUS build_device_path(UINT32 namespace_id, EFI_DEVICE_PATH_PROTOCOL** path);
  EFI_STATUS get_namespace(const EFI_DEVICE_PATH_PROTOCOL* path, UINT32* namespace_id) const;

 private:
  Machine& machine_;
  NvmeDrive drive_;
  EFI_NVM_EXPRESS_PASS_THRU_MODE mode_{};
  HostedProtocol<EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL, NvmeController> protocol_;
  std::vector<uint8_t> device_path_;  // the controller's, ends with the end node
  EFI_HANDLE handle_ = nullptr;
};

}  // namespace hostfw
