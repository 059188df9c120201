// The machine's SATA (AHCI) controller and the ATA drives on its ports, as
// the application reaches them: EFI_ATA_PASS_THRU_PROTOCOL on the
// controller's handle.
//
// The drives answer the commands a diagnostics program sends: IDENTIFY
// DEVICE, READ VERIFY SECTORS (EXT), WRITE SECTORS (EXT), WRITE
// UNCORRECTABLE EXT, READ LOG EXT and the SMART feature set (data,
// thresholds, enable/disable, return status, off-line immediate self-tests,
// logs). Every other command is aborted (ABRT).
//
// Sector contents are not stored: reads are verify-only, and what a drive
// keeps per sector is whether it reads back. What else a drive is and does
// (IDENTIFY words, SMART, self-tests on the machine clock, logs, faulty
// sectors) comes from its profile section (docs/machine-profile.md).
//
// Completion conventions of PassThru (the status block always carries the
// finished command's registers):
//   EFI_SUCCESS           the command completed; AtaStatus 0x50. Also a
//                         command that ended with an error when the machine
//                         reports errors that way (ata_error_status).
//   EFI_DEVICE_ERROR      the command completed with an error, as an AHCI
//                         controller reports a task file error: AtaStatus
//                         0x51, AtaError says why (0x40 UNC with the first
//                         failing LBA in the LBA registers, 0x10 IDNF, 0x04
//                         ABRT refused). Also for a packet whose transfer
//                         direction does not fit the command.
//   EFI_TIMEOUT           the drive never answered; the packet's Timeout
//                         passed in machine time.
//   EFI_BAD_BUFFER_SIZE   the data buffer is smaller than the command's
//                         transfer; nothing was executed, the transfer length
//                         says how much the command needs.
//   EFI_INVALID_PARAMETER malformed packet (no Acb or Asb, a length without a
//                         buffer, a buffer or status block not aligned to
//                         IoAlign), or a port-multiplier port the port lacks.
//   EFI_UNSUPPORTED       a protocol this controller does not carry out
//                         (resets, diagnostics, queued commands).
//   EFI_NOT_FOUND         no drive on that port.
// Commands are blocking; an Event is ignored (the mode has no NONBLOCKIO).
// A drive with a media rate (media_mb_per_s) keeps PassThru waiting while
// READ VERIFY or WRITE SECTORS passes over its sectors at that rate; every
// other command, and every command of a drive without one, is instant.
//
// The controller (this file) enumerates the drives and checks each packet;
// ata_commands.* decodes the command and ata_drive.* is the drive.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"
#include "hostfw/ata_drive.h"
#include "hostfw/profile.h"
#include "hostfw/protocol_thunk.h"

namespace hostfw {

class Machine;

class AtaController {
 public:
  // Installs the controller on a new handle with its device path.
  AtaController(Machine& machine, const Profile& profile);
  ~AtaController();
  AtaController(const AtaController&) = delete;
  AtaController& operator=(const AtaController&) = delete;

  EFI_HANDLE handle() const { return handle_; }
  EFI_ATA_PASS_THRU_PROTOCOL* protocol() { return &protocol_.protocol; }
  Events& events() const;
  size_t drive_count() const { return drives_.size(); }

  // ---- For tests: the drive at a port (behind a multiplier: at that
  // multiplier port). Each throws std::out_of_range when there is none.
  // What the drive was sent: commands by opcode and SMART feature, sectors
  // written and marked uncorrectable, resets.
  const AtaCommandCounts& counts(uint16_t port, uint16_t multiplier_port = kDirectAttach) const;
  // How long a self-test of that subcommand runs, in nanoseconds of machine
  // time; 0 for a subcommand that is no self-test.
  uint64_t self_test_duration_ns(uint16_t port, uint8_t subcommand, uint16_t multiplier_port = kDirectAttach) const;
  // Whether a sector currently fails to read.
  bool sector_is_bad(uint16_t port, uint64_t lba, uint16_t multiplier_port = kDirectAttach) const;
  // The drive answers `more` further commands, then none: what the profile's
  // stop_answering_after does, counted from now instead of from power-on.
  void stop_answering_after(uint16_t port, uint64_t more, uint16_t multiplier_port = kDirectAttach);

  // ---- The protocol's operations (reached through EFIAPI thunks) -----------
  EFI_STATUS pass_thru(UINT16 port, UINT16 multiplier_port, EFI_ATA_PASS_THRU_COMMAND_PACKET* packet);
  EFI_STATUS get_next_port(UINT16* port);
  EFI_STATUS get_next_device(UINT16 port, UINT16* multiplier_port);
  EFI_STATUS build_device_path(UINT16 port, UINT16 multiplier_port, EFI_DEVICE_PATH_PROTOCOL** path);
  EFI_STATUS get_device(const EFI_DEVICE_PATH_PROTOCOL* path, UINT16* port, UINT16* multiplier_port);
  EFI_STATUS reset_port(UINT16 port);
  EFI_STATUS reset_device(UINT16 port, UINT16 multiplier_port);

 private:
  AtaDrive* find(UINT16 port, UINT16 multiplier_port) const;
  const AtaDrive& drive(uint16_t port, uint16_t multiplier_port) const;
  bool port_used(UINT16 port) const;
  void reset(AtaDrive& drive);

  Machine& machine_;
  AtaErrorReport error_report_;
  std::vector<std::unique_ptr<AtaDrive>> drives_;  // by port, then multiplier port
  EFI_ATA_PASS_THRU_MODE mode_{};
  HostedProtocol<EFI_ATA_PASS_THRU_PROTOCOL, AtaController> protocol_;
  std::vector<uint8_t> device_path_;  // the controller's, ends with the end node
  EFI_HANDLE handle_ = nullptr;
  // Enumeration state: what GetNextPort / GetNextDevice returned last.
  bool port_returned_ = false;
  UINT16 last_port_ = 0;
  bool device_returned_ = false;
  UINT16 device_port_ = 0;
  UINT16 last_device_ = 0;
};

}  // namespace hostfw
