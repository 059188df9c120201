#include "hostfw/ata_controller.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "hostfw/ata_commands.h"
#include "hostfw/ata_command_set.h"
#include "hostfw/device_wait.h"
#include "hostfw/machine.h"
#include "hostfw/memory.h"

namespace hostfw {
namespace {

const EFI_GUID kAtaPassThruGuid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
const EFI_GUID kDevicePathGuid = EFI_DEVICE_PATH_PROTOCOL_GUID;

constexpr UINT16 kNoMultiplier = kDirectAttach;

// ---- EFIAPI entry points ---------------------------------------------------------

EFIAPI EFI_STATUS PassThru(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort,
                           EFI_ATA_PASS_THRU_COMMAND_PACKET* Packet, EFI_EVENT) {
  return serve<AtaController>(This, [&](AtaController& a) { return a.pass_thru(Port, PortMultiplierPort, Packet); });
}
EFIAPI EFI_STATUS GetNextPort(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16* Port) {
  return serve<AtaController>(This, [&](AtaController& a) { return a.get_next_port(Port); });
}
EFIAPI EFI_STATUS GetNextDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16* PortMultiplierPort) {
  return serve<AtaController>(This, [&](AtaController& a) { return a.get_next_device(Port, PortMultiplierPort); });
}
EFIAPI EFI_STATUS BuildDevicePath(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort,
                                  EFI_DEVICE_PATH_PROTOCOL** DevicePath) {
  return serve<AtaController>(
      This, [&](AtaController& a) { return a.build_device_path(Port, PortMultiplierPort, DevicePath); });
}
EFIAPI EFI_STATUS GetDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* DevicePath, UINT16* Port,
                            UINT16* PortMultiplierPort) {
  return serve<AtaController>(
      This, [&](AtaController& a) { return a.get_device(DevicePath, Port, PortMultiplierPort); });
}
EFIAPI EFI_STATUS ResetPort(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port) {
  return serve<AtaController>(This, [&](AtaController& a) { return a.reset_port(Port); });
}
EFIAPI EFI_STATUS ResetDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort) {
  return serve<AtaController>(This, [&](AtaController& a) { return a.reset_device(Port, PortMultiplierPort); });
}

}  // namespace

// ---- The controller -----------------------------------------------------------------

AtaController::AtaController(Machine& machine, const Profile& profile)
    : machine_(machine), error_report_(profile.ata_error_report) {
  for (const DriveInfo& d : profile.drives) drives_.push_back(std::make_unique<AtaDrive>(d));
  // In port order, and on a port behind a multiplier in multiplier-port order.
  std::sort(drives_.begin(), drives_.end(), [](const auto& a, const auto& b) {
    return std::pair(a->info.port, a->info.multiplier_port) < std::pair(b->info.port, b->info.multiplier_port);
  });

  mode_.Attributes = EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_ATA_PASS_THRU_ATTRIBUTES_LOGICAL;
  mode_.IoAlign = profile.ata_io_align;
  protocol_.owner = this;
  protocol_.protocol.Mode = &mode_;
  protocol_.protocol.PassThru = PassThru;
  protocol_.protocol.GetNextPort = GetNextPort;
  protocol_.protocol.GetNextDevice = GetNextDevice;
  protocol_.protocol.BuildDevicePath = BuildDevicePath;
  protocol_.protocol.GetDevice = GetDevice;
  protocol_.protocol.ResetPort = ResetPort;
  protocol_.protocol.ResetDevice = ResetDevice;

  // PciRoot(0)/Pci(0x17,0x0): the controller on the root bridge.
  device_path_ = {ACPI_DEVICE_PATH, 0x01, 12, 0, 0xD0, 0x41, 0x03, 0x0A, 0, 0, 0, 0,
                  HARDWARE_DEVICE_PATH, 0x01, 6, 0, 0x00, 0x17,
                  END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, 4, 0};
  machine_.handles().install(&handle_, kAtaPassThruGuid, &protocol_.protocol);
  machine_.handles().install(&handle_, kDevicePathGuid, device_path_.data());
}

Events& AtaController::events() const { return machine_.events(); }

AtaController::~AtaController() {
  machine_.handles().uninstall(handle_, kDevicePathGuid, device_path_.data());
  machine_.handles().uninstall(handle_, kAtaPassThruGuid, &protocol_.protocol);
}

AtaDrive* AtaController::find(UINT16 port, UINT16 multiplier_port) const {
  for (const auto& d : drives_)
    if (d->info.port == port && d->info.multiplier_port == multiplier_port) return d.get();
  return nullptr;
}

bool AtaController::port_used(UINT16 port) const {
  return std::any_of(drives_.begin(), drives_.end(), [port](const auto& d) { return d->info.port == port; });
}

const AtaDrive& AtaController::drive(uint16_t port, uint16_t multiplier_port) const {
  const AtaDrive* d = find(port, multiplier_port);
  if (d == nullptr) throw std::out_of_range("no drive on port " + std::to_string(port));
  return *d;
}

uint64_t AtaController::self_test_duration_ns(uint16_t port, uint8_t subcommand, uint16_t multiplier_port) const {
  return drive(port, multiplier_port).duration_ns(subcommand);
}

bool AtaController::sector_is_bad(uint16_t port, uint64_t lba, uint16_t multiplier_port) const {
  return drive(port, multiplier_port).bad.contains(lba);
}

void AtaController::stop_answering_after(uint16_t port, uint64_t more, uint16_t multiplier_port) {
  AtaDrive* d = find(port, multiplier_port);
  if (d == nullptr) throw std::out_of_range("no drive on port " + std::to_string(port));
  d->info.stop_answering_after = d->counts.total + more;
}

const AtaCommandCounts& AtaController::counts(uint16_t port, uint16_t multiplier_port) const {
  return drive(port, multiplier_port).counts;
}

EFI_STATUS AtaController::get_next_port(UINT16* port) {
  if (port == nullptr) return EFI_INVALID_PARAMETER;
  device_returned_ = false;
  size_t next = 0;
  if (*port != 0xFFFF) {
    if (!port_returned_ || *port != last_port_) return EFI_INVALID_PARAMETER;
    while (next < drives_.size() && drives_[next]->info.port <= *port) ++next;
  }
  if (next >= drives_.size()) {
    port_returned_ = false;
    return EFI_NOT_FOUND;
  }
  *port = last_port_ = drives_[next]->info.port;
  port_returned_ = true;
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::get_next_device(UINT16 port, UINT16* multiplier_port) {
  if (multiplier_port == nullptr || !port_used(port)) return EFI_INVALID_PARAMETER;
  // The port's devices in order: a drive attached directly is the only one,
  // reported as 0xFFFF; drives behind a multiplier by their multiplier ports.
  // 0xFFFF starts the list; anything else must be the device returned last.
  std::vector<UINT16> devices;
  for (const auto& d : drives_)
    if (d->info.port == port) devices.push_back(d->info.multiplier_port);
  size_t next = 0;
  if (*multiplier_port != kNoMultiplier || (device_returned_ && device_port_ == port && devices[0] == kNoMultiplier)) {
    if (!device_returned_ || device_port_ != port || *multiplier_port != last_device_) return EFI_INVALID_PARAMETER;
    next = static_cast<size_t>(std::find(devices.begin(), devices.end(), last_device_) - devices.begin()) + 1;
  }
  if (next >= devices.size()) {
    device_returned_ = false;
    return EFI_NOT_FOUND;
  }
  device_returned_ = true;
  device_port_ = port;
  *multiplier_port = last_device_ = devices[next];
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::build_device_path(UINT16 port, UINT16 multiplier_port, EFI_DEVICE_PATH_PROTOCOL** path) {
  if (path == nullptr) return EFI_INVALID_PARAMETER;
  if (find(port, multiplier_port) == nullptr) return EFI_NOT_FOUND;
  void* node = nullptr;
  if (machine_.memory().allocate_pool(EfiBootServicesData, 10, &node) != EFI_SUCCESS) return EFI_OUT_OF_RESOURCES;
  const uint8_t bytes[10] = {MESSAGING_DEVICE_PATH, MSG_SATA_DP, 10, 0,
                             static_cast<uint8_t>(port), static_cast<uint8_t>(port >> 8),
                             static_cast<uint8_t>(multiplier_port), static_cast<uint8_t>(multiplier_port >> 8), 0, 0};
  std::memcpy(node, bytes, sizeof bytes);
  *path = static_cast<EFI_DEVICE_PATH_PROTOCOL*>(node);
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::get_device(const EFI_DEVICE_PATH_PROTOCOL* path, UINT16* port, UINT16* multiplier_port) {
  if (path == nullptr || port == nullptr || multiplier_port == nullptr) return EFI_INVALID_PARAMETER;
  if (path->Type != MESSAGING_DEVICE_PATH || path->SubType != MSG_SATA_DP || DevicePathNodeLength(path) != 10)
    return EFI_UNSUPPORTED;
  const auto* bytes = reinterpret_cast<const uint8_t*>(path);
  const UINT16 p = static_cast<UINT16>(bytes[4] | bytes[5] << 8);
  const UINT16 m = static_cast<UINT16>(bytes[6] | bytes[7] << 8);
  if (find(p, m) == nullptr) return EFI_NOT_FOUND;
  *port = p;
  *multiplier_port = m;
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::reset_port(UINT16 port) {
  if (!port_used(port)) return EFI_NOT_FOUND;
  for (const auto& d : drives_)
    if (d->info.port == port) reset(*d);
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::reset_device(UINT16 port, UINT16 multiplier_port) {
  AtaDrive* d = find(port, multiplier_port);
  if (d == nullptr) return EFI_NOT_FOUND;
  reset(*d);
  return EFI_SUCCESS;
}

// A reset interrupts a running self-test, which the log records.
void AtaController::reset(AtaDrive& drive) {
  ++drive.counts.resets;
  drive.interrupt(ata::kTestInterruptedByReset, machine_.clock().now_ns());
}

// ---- PassThru ----------------------------------------------------------------------

EFI_STATUS AtaController::pass_thru(UINT16 port, UINT16 multiplier_port, EFI_ATA_PASS_THRU_COMMAND_PACKET* packet) {
  if (packet == nullptr || packet->Acb == nullptr || packet->Asb == nullptr) return EFI_INVALID_PARAMETER;
  const uint32_t align = mode_.IoAlign;
  auto misaligned = [align](const void* p) { return align > 1 && reinterpret_cast<uintptr_t>(p) % align != 0; };
  if (misaligned(packet->Asb) || misaligned(packet->InDataBuffer) || misaligned(packet->OutDataBuffer))
    return EFI_INVALID_PARAMETER;
  if ((packet->InTransferLength != 0 && packet->InDataBuffer == nullptr) ||
      (packet->OutTransferLength != 0 && packet->OutDataBuffer == nullptr))
    return EFI_INVALID_PARAMETER;
  if (!ata_protocol_carried(packet->Protocol)) return EFI_UNSUPPORTED;
  if (!port_used(port)) return EFI_NOT_FOUND;
  AtaDrive* drive = find(port, multiplier_port);
  if (drive == nullptr) return EFI_INVALID_PARAMETER;  // a port-multiplier port the port does not have

  const AtaExecution done = execute_ata_command(*drive, *packet, machine_.clock().now_ns());
  // The drive works on its media while PassThru waits for it.
  wait_for_device(machine_, done.media_ns);
  switch (done.completion) {
    case AtaCompletion::kDone: return EFI_SUCCESS;
    case AtaCompletion::kError:
      // A task file error: reported as such, or (as older firmware does after
      // its retries) as success with the error left in the status block.
      return error_report_ == AtaErrorReport::kSuccess ? EFI_SUCCESS : EFI_DEVICE_ERROR;
    case AtaCompletion::kBadBufferSize: return EFI_BAD_BUFFER_SIZE;
    case AtaCompletion::kTimeout:
      wait_for_timeout(machine_, packet->Timeout);
      return EFI_TIMEOUT;
  }
  return EFI_DEVICE_ERROR;
}

}  // namespace hostfw
