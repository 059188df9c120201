#include "nvme/nvme_commands.h"

#include "core/globals.h"

namespace tarvik {
namespace {

// In 100 ns units: a minute covers a long Verify on a slow drive.
constexpr UINT64 CommandTimeout = 60ull * 10000000ull;
constexpr UINT8 CnsOffset = 0;

// The completion's status field: the status code type in bits 27:25 of the
// fourth dword; type 2 is a media or data integrity error.
constexpr UINT32 StatusCodeType(const EFI_NVM_EXPRESS_COMPLETION& Completion) { return (Completion.DW3 >> 25) & 0x7; }
constexpr UINT32 StatusCode(const EFI_NVM_EXPRESS_COMPLETION& Completion) { return (Completion.DW3 >> 17) & 0xFF; }
constexpr UINT32 MediaErrorType = 2;

NvmeAnswer Send(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 Queue,
                EFI_NVM_EXPRESS_COMMAND& Command, VOID* Buffer, UINT32 Bytes) {
  if (PassThru == nullptr || PassThru->PassThru == nullptr) return NvmeAnswer::Silent;
  EFI_NVM_EXPRESS_COMPLETION Completion{};
  EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET Packet{};
  Packet.CommandTimeout = CommandTimeout;
  Packet.TransferBuffer = Buffer;
  Packet.TransferLength = Bytes;
  Packet.QueueType = Queue;
  Packet.NvmeCmd = &Command;
  Packet.NvmeCompletion = &Completion;
  Command.Nsid = NamespaceId;
  const EFI_STATUS Status = PassThru->PassThru(PassThru, NamespaceId, &Packet, nullptr);
  if (Status == EFI_SUCCESS) return NvmeAnswer::Done;
  // A device error with a status in the completion is the controller's
  // answer; anything else means it did not answer.
  if (Status != EFI_DEVICE_ERROR || (StatusCodeType(Completion) == 0 && StatusCode(Completion) == 0))
    return NvmeAnswer::Silent;
  return StatusCodeType(Completion) == MediaErrorType ? NvmeAnswer::Unreadable : NvmeAnswer::Refused;
}

EFI_NVM_EXPRESS_COMMAND CommandOf(UINT8 Opcode) {
  EFI_NVM_EXPRESS_COMMAND Command{};
  Command.Cdw0.Opcode = Opcode;
  Command.Flags = CDW10_VALID | CDW11_VALID | CDW12_VALID | CDW13_VALID;
  return Command;
}

NvmeAnswer BlockCommand(const NvmeDevice& Device, UINT8 Opcode, UINT64 Lba, UINT32 Blocks, VOID* Buffer) {
  if (Blocks == 0 || Blocks > 0x10000) return NvmeAnswer::Refused;
  EFI_NVM_EXPRESS_COMMAND Command = CommandOf(Opcode);
  Command.Cdw10 = static_cast<UINT32>(Lba);
  Command.Cdw11 = static_cast<UINT32>(Lba >> 32);
  Command.Cdw12 = Blocks - 1;  // zero-based
  const UINT32 Bytes = Buffer != nullptr ? Blocks * Device.Namespace.BlockBytes : 0;
  return Send(Device.PassThru, Device.NamespaceId, NVME_IO_QUEUE, Command, Buffer, Bytes);
}

}  // namespace

NvmeAnswer NvmeIdentify(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 Cns, VOID* Page) {
  EFI_NVM_EXPRESS_COMMAND Command = CommandOf(nvme_opcode::Identify);
  Command.Cdw10 = static_cast<UINT32>(Cns) << CnsOffset;
  return Send(PassThru, NamespaceId, NVME_ADMIN_QUEUE, Command, Page, NvmePageBytes);
}

NvmeAnswer NvmeGetLogPage(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 LogId,
                          VOID* Buffer, UINT32 Bytes) {
  if (Bytes < 4) return NvmeAnswer::Refused;
  const UINT32 Dwords = Bytes / 4 - 1;  // zero-based
  EFI_NVM_EXPRESS_COMMAND Command = CommandOf(nvme_opcode::GetLogPage);
  Command.Cdw10 = LogId | ((Dwords & 0xFFFF) << 16);
  Command.Cdw11 = Dwords >> 16;
  return Send(PassThru, NamespaceId, NVME_ADMIN_QUEUE, Command, Buffer, Bytes);
}

NvmeAnswer NvmeDeviceSelfTest(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 Code) {
  EFI_NVM_EXPRESS_COMMAND Command = CommandOf(nvme_opcode::DeviceSelfTest);
  Command.Cdw10 = Code & 0xF;
  return Send(PassThru, NamespaceId, NVME_ADMIN_QUEUE, Command, nullptr, 0);
}

NvmeAnswer NvmeVerifyBlocks(const NvmeDevice& Device, UINT64 Lba, UINT32 Blocks) {
  return BlockCommand(Device, nvme_opcode::Verify, Lba, Blocks, nullptr);
}

NvmeAnswer NvmeReadBlocks(const NvmeDevice& Device, UINT64 Lba, UINT32 Blocks, VOID* Buffer) {
  if (Buffer == nullptr) return NvmeAnswer::Refused;
  return BlockCommand(Device, nvme_opcode::Read, Lba, Blocks, Buffer);
}

NvmePages::NvmePages(UINTN Bytes) {
  Pages_ = (Bytes + NvmePageBytes - 1) / NvmePageBytes;
  EFI_PHYSICAL_ADDRESS Address = 0;
  if (Pages_ == 0 || EFI_ERROR(gBS->AllocatePages(AllocateAnyPages, EfiBootServicesData, Pages_, &Address))) {
    Pages_ = 0;
    return;
  }
  Buffer_ = reinterpret_cast<UINT8*>(static_cast<UINTN>(Address));
}

NvmePages::~NvmePages() {
  if (Buffer_ != nullptr) gBS->FreePages(reinterpret_cast<UINTN>(Buffer_), Pages_);
}

}  // namespace tarvik
