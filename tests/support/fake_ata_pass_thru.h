// A scripted EFI_ATA_PASS_THRU_PROTOCOL for tests of the storage code: it
// records every packet it is handed and answers each from a script (status,
// status block, data bytes), for what the simulated drives cannot show.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"

namespace testing_support {

// One answer to PassThru.
struct AtaReply {
  EFI_STATUS status = EFI_SUCCESS;
  EFI_ATA_STATUS_BLOCK status_block = ok_status();  // copied into the packet's Asb
  std::vector<uint8_t> data;  // copied into the in-buffer, at most its transfer length

  static EFI_ATA_STATUS_BLOCK ok_status() {
    EFI_ATA_STATUS_BLOCK block{};
    block.AtaStatus = 0x50;  // ready, seek complete
    return block;
  }
  // A completion with the error bit set and Error in the error register.
  static AtaReply error(EFI_STATUS status, uint8_t error) {
    AtaReply reply;
    reply.status = status;
    reply.status_block.AtaStatus = 0x51;
    reply.status_block.AtaError = error;
    return reply;
  }
};

// What PassThru was handed, copied when it was called.
struct RecordedPacket {
  UINT16 port = 0;
  UINT16 multiplier_port = 0;
  EFI_ATA_COMMAND_BLOCK acb{};
  EFI_ATA_STATUS_BLOCK* asb = nullptr;
  UINT64 timeout = 0;
  VOID* in_buffer = nullptr;
  VOID* out_buffer = nullptr;
  UINT32 in_length = 0;
  UINT32 out_length = 0;
  UINT8 protocol = 0;
  UINT8 length = 0;
  bool event = false;
};

class FakeAtaPassThru {
 public:
  // Mode: physical and logical, IoAlign as OVMF reports it.
  FakeAtaPassThru();
  ~FakeAtaPassThru();
  FakeAtaPassThru(const FakeAtaPassThru&) = delete;
  FakeAtaPassThru& operator=(const FakeAtaPassThru&) = delete;

  EFI_ATA_PASS_THRU_PROTOCOL* protocol() { return &slot_.protocol; }
  EFI_ATA_PASS_THRU_MODE mode{EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_ATA_PASS_THRU_ATTRIBUTES_LOGICAL, 8};

  // Publishes the protocol on a new handle of the current machine (removed
  // again by the destructor).
  EFI_HANDLE install();

  // The devices GetNextPort / GetNextDevice report, (port, multiplier port)
  // in order; a port's devices must be listed together.
  std::vector<std::pair<UINT16, UINT16>> devices;

  // Answers: the queue first, in order; then the responder, when set; else
  // default_reply. Buffers and status blocks not aligned to mode.IoAlign are
  // refused (EFI_INVALID_PARAMETER) first.
  std::deque<AtaReply> replies;
  std::function<AtaReply(const RecordedPacket&)> responder;
  AtaReply default_reply;

  // What happened.
  std::vector<RecordedPacket> packets;
  std::vector<std::pair<UINT16, UINT16>> resets;  // ResetDevice calls

 private:
  struct Slot {
    EFI_ATA_PASS_THRU_PROTOCOL protocol;
    FakeAtaPassThru* owner;
  };
  static FakeAtaPassThru& of(EFI_ATA_PASS_THRU_PROTOCOL* This);
  static EFIAPI EFI_STATUS PassThru(EFI_ATA_PASS_THRU_PROTOCOL*, UINT16, UINT16, EFI_ATA_PASS_THRU_COMMAND_PACKET*,
                                    EFI_EVENT);
  static EFIAPI EFI_STATUS GetNextPort(EFI_ATA_PASS_THRU_PROTOCOL*, UINT16*);
  static EFIAPI EFI_STATUS GetNextDevice(EFI_ATA_PASS_THRU_PROTOCOL*, UINT16, UINT16*);
  static EFIAPI EFI_STATUS ResetDevice(EFI_ATA_PASS_THRU_PROTOCOL*, UINT16, UINT16);
  static EFIAPI EFI_STATUS Unsupported();

  Slot slot_{};
  EFI_HANDLE handle_ = nullptr;
  bool no_multiplier_returned_ = false;  // GetNextDevice's last answer was 0xFFFF
};

// IDENTIFY DEVICE data built word by word, strings in ATA byte order.
class IdentifyPage {
 public:
  IdentifyPage& word(int index, uint16_t value);
  // Text in words first..first+words-1, space-padded, two characters a word.
  IdentifyPage& text(int first, int words, const std::string& value);
  // Raw bytes at a byte offset, as the drive would send them.
  IdentifyPage& bytes(int offset, const std::vector<uint8_t>& value);
  uint16_t word(int index) const { return static_cast<uint16_t>(bytes_[2 * index] | bytes_[2 * index + 1] << 8); }
  std::vector<uint8_t> data() const { return {bytes_.begin(), bytes_.end()}; }

  // A 48-bit, SMART-capable rotating drive of the given identity.
  static IdentifyPage typical(const std::string& model, const std::string& serial, uint64_t sectors = 1000000000);

 private:
  std::array<uint8_t, 512> bytes_{};
};

}  // namespace testing_support
