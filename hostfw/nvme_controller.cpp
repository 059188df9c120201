#include "hostfw/nvme_controller.h"

#include <cstring>

#include "hostfw/device_wait.h"
#include "hostfw/machine.h"
#include "hostfw/memory.h"
#include "hostfw/nvme_commands.h"

namespace hostfw {
namespace {

const EFI_GUID kNvmePassThruGuid = EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL_GUID;
const EFI_GUID kDevicePathGuid = EFI_DEVICE_PATH_PROTOCOL_GUID;
constexpr UINT32 kAllNamespaces = 0xFFFFFFFF;
constexpr uint8_t kFirstNvmeSlot = 0x04;  // PCI devices 04h, 05h, … on the root bridge

// Admin opcodes that create and delete I/O queues: the firmware's own.
bool queue_management(uint8_t opcode) { return opcode == 0x00 || opcode == 0x01 || opcode == 0x04 || opcode == 0x05; }

// ---- EFIAPI entry points ---------------------------------------------------------

EFIAPI EFI_STATUS PassThru(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This, UINT32 NamespaceId,
                           EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET* Packet, EFI_EVENT) {
  return serve<NvmeController>(This, [&](NvmeController& c) { return c.pass_thru(NamespaceId, Packet); });
}
EFIAPI EFI_STATUS GetNextNamespace(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This, UINT32* NamespaceId) {
  return serve<NvmeController>(This, [&](NvmeController& c) { return c.get_next_namespace(NamespaceId); });
}
EFIAPI EFI_STATUS BuildDevicePath(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This, UINT32 NamespaceId,
                                  EFI_DEVICE_PATH_PROTOCOL** DevicePath) {
  return serve<NvmeController>(This, [&](NvmeController& c) { return c.build_device_path(NamespaceId, DevicePath); });
}
EFIAPI EFI_STATUS GetNamespace(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* DevicePath,
                               UINT32* NamespaceId) {
  return serve<NvmeController>(This, [&](NvmeController& c) { return c.get_namespace(DevicePath, NamespaceId); });
}

}  // namespace

NvmeController::NvmeController(Machine& machine, const NvmeInfo& drive, size_t index)
    : machine_(machine), drive_(drive) {
  mode_.Attributes = EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_LOGICAL |
                     EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_CMD_SET_NVM;
  mode_.IoAlign = drive.io_align;
  mode_.NvmeVersion = nvme::kVersion;
  protocol_.owner = this;
  protocol_.protocol.Mode = &mode_;
  protocol_.protocol.PassThru = PassThru;
  protocol_.protocol.GetNextNamespace = GetNextNamespace;
  protocol_.protocol.BuildDevicePath = BuildDevicePath;
  protocol_.protocol.GetNamespace = GetNamespace;

  // PciRoot(0)/Pci(slot,0x0): each controller in a slot of the root bridge.
  const uint8_t slot = static_cast<uint8_t>(kFirstNvmeSlot + index);
  device_path_ = {ACPI_DEVICE_PATH, 0x01, 12, 0, 0xD0, 0x41, 0x03, 0x0A, 0, 0, 0, 0,
                  HARDWARE_DEVICE_PATH, 0x01, 6, 0, 0x00, slot,
                  END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, 4, 0};
  machine_.handles().install(&handle_, kNvmePassThruGuid, &protocol_.protocol);
  machine_.handles().install(&handle_, kDevicePathGuid, device_path_.data());
}

NvmeController::~NvmeController() {
  machine_.handles().uninstall(handle_, kDevicePathGuid, device_path_.data());
  machine_.handles().uninstall(handle_, kNvmePassThruGuid, &protocol_.protocol);
}

Events& NvmeController::events() const { return machine_.events(); }

EFI_STATUS NvmeController::get_next_namespace(UINT32* namespace_id) const {
  if (namespace_id == nullptr) return EFI_INVALID_PARAMETER;
  if (*namespace_id == kAllNamespaces) {
    *namespace_id = 1;
    return EFI_SUCCESS;
  }
  if (!drive_.namespace_exists(*namespace_id)) return EFI_INVALID_PARAMETER;
  if (*namespace_id == drive_.info.namespaces) return EFI_NOT_FOUND;
  ++*namespace_id;
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::build_device_path(UINT32 namespace_id, EFI_DEVICE_PATH_PROTOCOL** path) {
  if (path == nullptr) return EFI_INVALID_PARAMETER;
  if (!drive_.namespace_exists(namespace_id)) return EFI_NOT_FOUND;
  void* node = nullptr;
  if (machine_.memory().allocate_pool(EfiBootServicesData, sizeof(NVME_NAMESPACE_DEVICE_PATH), &node) != EFI_SUCCESS)
    return EFI_OUT_OF_RESOURCES;
  NVME_NAMESPACE_DEVICE_PATH n{};
  n.Header = {MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP, {sizeof n, 0}};
  n.NamespaceId = namespace_id;
  std::vector<uint8_t> identify = drive_.identify_namespace(namespace_id);
  std::memcpy(&n.NamespaceUuid, &identify[120], 8);
  std::memcpy(node, &n, sizeof n);
  *path = static_cast<EFI_DEVICE_PATH_PROTOCOL*>(node);
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::get_namespace(const EFI_DEVICE_PATH_PROTOCOL* path, UINT32* namespace_id) const {
  if (path == nullptr || namespace_id == nullptr) return EFI_INVALID_PARAMETER;
  if (path->Type != MESSAGING_DEVICE_PATH || path->SubType != MSG_NVME_NAMESPACE_DP ||
      DevicePathNodeLength(path) != sizeof(NVME_NAMESPACE_DEVICE_PATH))
    return EFI_UNSUPPORTED;
  UINT32 id = 0;
  std::memcpy(&id, reinterpret_cast<const uint8_t*>(path) + 4, 4);
  if (!drive_.namespace_exists(id)) return EFI_NOT_FOUND;
  *namespace_id = id;
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::pass_thru(UINT32 namespace_id, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET* packet) {
  if (packet == nullptr || packet->NvmeCmd == nullptr || packet->NvmeCompletion == nullptr)
    return EFI_INVALID_PARAMETER;
  if (packet->QueueType != NVME_ADMIN_QUEUE && packet->QueueType != NVME_IO_QUEUE) return EFI_INVALID_PARAMETER;
  const uint32_t align = mode_.IoAlign;
  auto misaligned = [align](const void* p) { return align > 1 && reinterpret_cast<uintptr_t>(p) % align != 0; };
  if ((packet->TransferLength != 0 && packet->TransferBuffer == nullptr) ||
      (packet->MetadataLength != 0 && packet->MetadataBuffer == nullptr) || misaligned(packet->TransferBuffer) ||
      misaligned(packet->MetadataBuffer))
    return EFI_INVALID_PARAMETER;
  if (namespace_id != 0 && namespace_id != kAllNamespaces && !drive_.namespace_exists(namespace_id))
    return EFI_INVALID_PARAMETER;

  const EFI_NVM_EXPRESS_COMMAND& cmd = *packet->NvmeCmd;
  NvmeCommand c;
  c.admin = packet->QueueType == NVME_ADMIN_QUEUE;
  c.opcode = static_cast<uint8_t>(cmd.Cdw0.Opcode);
  c.nsid = cmd.Nsid;
  if (c.admin && queue_management(c.opcode)) return EFI_UNSUPPORTED;
  auto valid = [&cmd](UINT8 flag, UINT32 value) { return (cmd.Flags & flag) != 0 ? value : 0u; };
  c.cdw10 = valid(CDW10_VALID, cmd.Cdw10);
  c.cdw11 = valid(CDW11_VALID, cmd.Cdw11);
  c.cdw12 = valid(CDW12_VALID, cmd.Cdw12);
  c.cdw13 = valid(CDW13_VALID, cmd.Cdw13);
  c.cdw14 = valid(CDW14_VALID, cmd.Cdw14);
  c.cdw15 = valid(CDW15_VALID, cmd.Cdw15);

  const NvmeExecution done = execute_nvme_command(drive_, c, static_cast<uint8_t*>(packet->TransferBuffer),
                                                  packet->TransferLength, machine_.clock().now_ns());
  switch (done.completion) {
    case NvmeCompletion::kBadBufferSize:
      packet->TransferLength = static_cast<UINT32>(done.needed_bytes);
      return EFI_BAD_BUFFER_SIZE;
    case NvmeCompletion::kTimeout:
      wait_for_timeout(machine_, packet->CommandTimeout);
      return EFI_TIMEOUT;
    case NvmeCompletion::kDone: break;
  }
  wait_for_device(machine_, done.media_ns);
  EFI_NVM_EXPRESS_COMPLETION& cqe = *packet->NvmeCompletion;
  cqe.DW0 = done.dw0;
  cqe.DW1 = 0;
  cqe.DW2 = c.admin ? 0 : 1u << 16;  // submission queue 0 (admin) or 1
  cqe.DW3 = static_cast<UINT32>(drive_.counts.total & 0xFFFF) | 1u << 16 | nvme::completion_dw3(done.status);
  return done.status.ok() ? EFI_SUCCESS : EFI_DEVICE_ERROR;
}

}  // namespace hostfw
