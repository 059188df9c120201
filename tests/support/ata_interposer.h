// One stand-in between the application and an ATA pass-through: on a whole
// controller (its PassThru slot) or on one discovered drive (the device's
// PassThru pointer). It records every command and forwards it to the drive,
// unless `answer` is set: that sees each packet with the drive at hand
// (forward) and gives the status, so it may answer itself, refuse, or change
// what the drive answered. Faults the simulated drives model (profile keys,
// `stop_answering_after`) belong in the profile, not here.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"
#include "storage/storage_device.h"

namespace testing_support {

// One command as the drive received it.
struct AtaCommand {
  UINT16 port = 0;
  uint8_t code = 0;
  uint8_t features = 0;
  uint64_t lba = 0;
  uint32_t count = 0;         // sectors, 0 standing for 256 or 65536
  std::vector<uint8_t> data;  // what a write carried
  EFI_ATA_COMMAND_BLOCK block{};
};

class AtaInterposer {
 public:
  using Forward = std::function<EFI_STATUS()>;
  using Answer = std::function<EFI_STATUS(EFI_ATA_PASS_THRU_COMMAND_PACKET&, UINT16 port, const Forward&)>;

  explicit AtaInterposer(EFI_ATA_PASS_THRU_PROTOCOL* controller, Answer answer = nullptr);
  explicit AtaInterposer(tarvik::StorageDevice& device, Answer answer = nullptr);
  ~AtaInterposer();
  AtaInterposer(const AtaInterposer&) = delete;
  AtaInterposer& operator=(const AtaInterposer&) = delete;

  Answer answer;
  std::vector<AtaCommand> commands;

  std::vector<AtaCommand> of(uint8_t code) const;
  // The commands that change what a drive holds.
  std::vector<AtaCommand> writes() const;
  // The addresses of READ VERIFY (EXT), in order.
  std::vector<uint64_t> read_lbas() const;
  // How many commands of that code (and features, and sector number) were sent.
  size_t count(uint8_t code, int features = -1, int sector_number = -1) const;

  // A refusal without the drive: ABRT in the status block, with status.
  static EFI_STATUS Abort(EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, EFI_STATUS status = EFI_DEVICE_ERROR);

 private:
  static EFIAPI EFI_STATUS PassThru(EFI_ATA_PASS_THRU_PROTOCOL* self, UINT16 port, UINT16 multiplier_port,
                                    EFI_ATA_PASS_THRU_COMMAND_PACKET* packet, EFI_EVENT event);

  EFI_ATA_PASS_THRU_PROTOCOL* patched_;      // the protocol whose PassThru slot is ours
  EFI_ATA_PASS_THRU_PROTOCOL* inner_;        // what the commands are forwarded to
  EFI_ATA_PASS_THRU_PASSTHRU forward_;       // its PassThru
  tarvik::StorageDevice* device_ = nullptr;  // on one drive: whose pointer we replaced
  EFI_ATA_PASS_THRU_PROTOCOL copy_{};        // on one drive: the protocol it sees
};

}  // namespace testing_support
