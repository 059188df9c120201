#include "tests/support/ata_interposer.h"

#include <map>

namespace testing_support {
namespace {

// Which interposer owns each protocol whose PassThru slot points here.
std::map<EFI_ATA_PASS_THRU_PROTOCOL*, AtaInterposer*>& owners() {
  static std::map<EFI_ATA_PASS_THRU_PROTOCOL*, AtaInterposer*> map;
  return map;
}

bool extended(uint8_t code) { return code == 0x42 || code == 0x34 || code == 0x45 || code == 0x2F; }

AtaCommand decoded(UINT16 port, const EFI_ATA_PASS_THRU_COMMAND_PACKET& packet) {
  const EFI_ATA_COMMAND_BLOCK& c = *packet.Acb;
  AtaCommand command;
  command.port = port;
  command.block = c;
  command.code = c.AtaCommand;
  command.features = c.AtaFeatures;
  command.lba = c.AtaSectorNumber | uint64_t{c.AtaCylinderLow} << 8 | uint64_t{c.AtaCylinderHigh} << 16;
  command.count = c.AtaSectorCount;
  if (extended(c.AtaCommand)) {
    command.lba |= uint64_t{c.AtaSectorNumberExp} << 24 | uint64_t{c.AtaCylinderLowExp} << 32 |
                   uint64_t{c.AtaCylinderHighExp} << 40;
    command.count |= c.AtaSectorCountExp << 8;
  } else {
    command.lba |= uint64_t{c.AtaDeviceHead & 0x0Fu} << 24;
  }
  if (packet.OutDataBuffer != nullptr) {
    const auto* bytes = static_cast<const uint8_t*>(packet.OutDataBuffer);
    command.data.assign(bytes, bytes + packet.OutTransferLength);
  }
  return command;
}

}  // namespace

AtaInterposer::AtaInterposer(EFI_ATA_PASS_THRU_PROTOCOL* controller, Answer answer_with)
    : answer(std::move(answer_with)), patched_(controller), inner_(controller), forward_(controller->PassThru) {
  controller->PassThru = PassThru;
  owners()[patched_] = this;
}

AtaInterposer::AtaInterposer(tarvik::StorageDevice& device, Answer answer_with)
    : answer(std::move(answer_with)), patched_(&copy_), inner_(device.PassThru), forward_(device.PassThru->PassThru),
      device_(&device) {
  copy_ = *inner_;
  copy_.PassThru = PassThru;
  device.PassThru = &copy_;
  owners()[patched_] = this;
}

AtaInterposer::~AtaInterposer() {
  owners().erase(patched_);
  if (device_ != nullptr)
    device_->PassThru = inner_;
  else
    patched_->PassThru = forward_;
}

EFI_STATUS AtaInterposer::PassThru(EFI_ATA_PASS_THRU_PROTOCOL* self, UINT16 port, UINT16 multiplier_port,
                                   EFI_ATA_PASS_THRU_COMMAND_PACKET* packet, EFI_EVENT event) {
  AtaInterposer& owner = *owners().at(self);
  const Forward forward = [&] { return owner.forward_(owner.inner_, port, multiplier_port, packet, event); };
  if (packet == nullptr || packet->Acb == nullptr) return forward();
  owner.commands.push_back(decoded(port, *packet));
  return owner.answer ? owner.answer(*packet, port, forward) : forward();
}

std::vector<AtaCommand> AtaInterposer::of(uint8_t code) const {
  std::vector<AtaCommand> found;
  for (const AtaCommand& c : commands)
    if (c.code == code) found.push_back(c);
  return found;
}

std::vector<AtaCommand> AtaInterposer::writes() const {
  std::vector<AtaCommand> found;
  for (const AtaCommand& c : commands)
    if (c.code == 0x30 || c.code == 0x34 || c.code == 0x45) found.push_back(c);
  return found;
}

std::vector<uint64_t> AtaInterposer::read_lbas() const {
  std::vector<uint64_t> lbas;
  for (const AtaCommand& c : commands)
    if (c.code == 0x40 || c.code == 0x42) lbas.push_back(c.lba);
  return lbas;
}

size_t AtaInterposer::count(uint8_t code, int features, int sector_number) const {
  size_t n = 0;
  for (const AtaCommand& c : commands)
    n += c.code == code && (features < 0 || c.features == features) &&
         (sector_number < 0 || c.block.AtaSectorNumber == sector_number);
  return n;
}

EFI_STATUS AtaInterposer::Abort(EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, EFI_STATUS status) {
  *packet.Asb = EFI_ATA_STATUS_BLOCK{};
  packet.Asb->AtaStatus = 0x51;
  packet.Asb->AtaError = 0x04;
  return status;
}

}  // namespace testing_support
