#include "tests/support/fake_ata_pass_thru.h"

#include <algorithm>
#include <cstring>

#include "core/globals.h"

namespace testing_support {

namespace {

bool misaligned(const void* p, UINT32 align) {
  return p != nullptr && align > 1 && reinterpret_cast<uintptr_t>(p) % align != 0;
}

}  // namespace

FakeAtaPassThru::FakeAtaPassThru() {
  slot_.owner = this;
  slot_.protocol.Mode = &mode;
  slot_.protocol.PassThru = PassThru;
  slot_.protocol.GetNextPort = GetNextPort;
  slot_.protocol.GetNextDevice = GetNextDevice;
  slot_.protocol.BuildDevicePath = reinterpret_cast<EFI_ATA_PASS_THRU_BUILD_DEVICE_PATH>(Unsupported);
  slot_.protocol.GetDevice = reinterpret_cast<EFI_ATA_PASS_THRU_GET_DEVICE>(Unsupported);
  slot_.protocol.ResetPort = reinterpret_cast<EFI_ATA_PASS_THRU_RESET_PORT>(Unsupported);
  slot_.protocol.ResetDevice = ResetDevice;
}

FakeAtaPassThru::~FakeAtaPassThru() {
  if (handle_ != nullptr && tarvik::gBS != nullptr) {
    EFI_GUID guid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
    tarvik::gBS->UninstallProtocolInterface(handle_, &guid, &slot_.protocol);
  }
}

EFI_HANDLE FakeAtaPassThru::install() {
  EFI_GUID guid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
  tarvik::gBS->InstallProtocolInterface(&handle_, &guid, EFI_NATIVE_INTERFACE, &slot_.protocol);
  return handle_;
}

FakeAtaPassThru& FakeAtaPassThru::of(EFI_ATA_PASS_THRU_PROTOCOL* This) {
  return *reinterpret_cast<Slot*>(This)->owner;
}

EFIAPI EFI_STATUS FakeAtaPassThru::PassThru(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort,
                                            EFI_ATA_PASS_THRU_COMMAND_PACKET* Packet, EFI_EVENT Event) {
  FakeAtaPassThru& self = of(This);
  if (Packet == nullptr || Packet->Acb == nullptr || Packet->Asb == nullptr) return EFI_INVALID_PARAMETER;
  RecordedPacket r;
  r.port = Port;
  r.multiplier_port = PortMultiplierPort;
  r.acb = *Packet->Acb;
  r.asb = Packet->Asb;
  r.timeout = Packet->Timeout;
  r.in_buffer = Packet->InDataBuffer;
  r.out_buffer = Packet->OutDataBuffer;
  r.in_length = Packet->InTransferLength;
  r.out_length = Packet->OutTransferLength;
  r.protocol = Packet->Protocol;
  r.length = Packet->Length;
  r.event = Event != nullptr;
  self.packets.push_back(r);

  const UINT32 align = self.mode.IoAlign;
  if (misaligned(Packet->Asb, align) || misaligned(Packet->InDataBuffer, align) ||
      misaligned(Packet->OutDataBuffer, align))
    return EFI_INVALID_PARAMETER;

  AtaReply reply;
  if (!self.replies.empty()) {
    reply = self.replies.front();
    self.replies.pop_front();
  } else if (self.responder) {
    reply = self.responder(r);
  } else {
    reply = self.default_reply;
  }
  *Packet->Asb = reply.status_block;
  if (Packet->InDataBuffer != nullptr && !reply.data.empty())
    std::memcpy(Packet->InDataBuffer, reply.data.data(),
                std::min<size_t>(reply.data.size(), Packet->InTransferLength));
  return reply.status;
}

EFIAPI EFI_STATUS FakeAtaPassThru::GetNextPort(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16* Port) {
  FakeAtaPassThru& self = of(This);
  if (Port == nullptr) return EFI_INVALID_PARAMETER;
  for (const auto& [port, multiplier] : self.devices) {
    if (*Port == 0xFFFF || port > *Port) {
      *Port = port;
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

EFIAPI EFI_STATUS FakeAtaPassThru::GetNextDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                                 UINT16* PortMultiplierPort) {
  FakeAtaPassThru& self = of(This);
  if (PortMultiplierPort == nullptr) return EFI_INVALID_PARAMETER;
  // As OVMF: after a drive without a port multiplier (0xFFFF), the next
  // question with 0xFFFF gets EFI_NOT_FOUND, whichever port it names, and
  // only the one after it starts that port's list.
  if (*PortMultiplierPort == 0xFFFF && self.no_multiplier_returned_) {
    self.no_multiplier_returned_ = false;
    return EFI_NOT_FOUND;
  }
  self.no_multiplier_returned_ = false;
  bool previous_seen = *PortMultiplierPort == 0xFFFF;
  for (const auto& [port, multiplier] : self.devices) {
    if (port != Port) continue;
    if (previous_seen) {
      *PortMultiplierPort = multiplier;
      self.no_multiplier_returned_ = multiplier == 0xFFFF;
      return EFI_SUCCESS;
    }
    previous_seen = multiplier == *PortMultiplierPort;
  }
  return EFI_NOT_FOUND;
}

EFIAPI EFI_STATUS FakeAtaPassThru::ResetDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                               UINT16 PortMultiplierPort) {
  of(This).resets.emplace_back(Port, PortMultiplierPort);
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS FakeAtaPassThru::Unsupported() { return EFI_UNSUPPORTED; }

IdentifyPage& IdentifyPage::word(int index, uint16_t value) {
  bytes_[2 * index] = static_cast<uint8_t>(value);
  bytes_[2 * index + 1] = static_cast<uint8_t>(value >> 8);
  return *this;
}

IdentifyPage& IdentifyPage::text(int first, int words, const std::string& value) {
  for (int i = 0; i < 2 * words; ++i) {
    const uint8_t c = i < static_cast<int>(value.size()) ? static_cast<uint8_t>(value[i]) : ' ';
    bytes_[2 * first + (i ^ 1)] = c;  // first character of a word in its high byte
  }
  return *this;
}

IdentifyPage& IdentifyPage::bytes(int offset, const std::vector<uint8_t>& value) {
  std::copy(value.begin(), value.end(), bytes_.begin() + offset);
  return *this;
}

IdentifyPage IdentifyPage::typical(const std::string& model, const std::string& serial, uint64_t sectors) {
  IdentifyPage page;
  // Drives right-justify their serial numbers.
  const std::string padded_serial = std::string(serial.size() < 20 ? 20 - serial.size() : 0, ' ') + serial;
  page.word(0, 0x0040).text(10, 10, padded_serial).text(23, 4, "FW01").text(27, 20, model);
  page.word(21, 0x0200).word(80, 0x01F0).word(81, 0x0110).word(82, 0x4021).word(83, 0x7400);
  page.word(84, 0x4003).word(85, 0x4021).word(106, 0x4000).word(217, 7200);
  for (int w = 0; w < 4; ++w) page.word(100 + w, static_cast<uint16_t>(sectors >> (16 * w)));
  return page;
}

}  // namespace testing_support
