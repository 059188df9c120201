#include "nvme/nvme_drive_operations.h"

namespace tarvik {
namespace {

constexpr UINT32 MaxBlocksPerCommand = 0x10000;  // the 16-bit block count of Read and Verify
constexpr UINT8 MaxShift = 16;

}  // namespace

UINT32 NvmeBlocksPerCommand(const NvmeDevice& Device) {
  const UINT32 BlockBytes = Device.Namespace.BlockBytes == 0 ? 512 : Device.Namespace.BlockBytes;
  const UINT8 Shift = Device.Controller.MaxTransferShift;
  UINT64 Bytes = NvmeMaxCommandBytes;
  if (Shift != 0 && Shift < MaxShift && (static_cast<UINT64>(NvmePageBytes) << Shift) < Bytes)
    Bytes = static_cast<UINT64>(NvmePageBytes) << Shift;
  UINT64 Blocks = Bytes / BlockBytes;
  if (Blocks == 0) Blocks = 1;
  return static_cast<UINT32>(Blocks > MaxBlocksPerCommand ? MaxBlocksPerCommand : Blocks);
}

NvmeDriveOperations::NvmeDriveOperations(const NvmeDevice& Device)
    : Device_(Device),
      Buffer_(Device.Controller.VerifySupported != 0 ? 0 : NvmeBlocksPerCommand(Device) * Device.Namespace.BlockBytes),
      Operations_{this, Device.Namespace.Blocks, NvmeBlocksPerCommand(Device), Verify} {}

DriveOutcome NvmeDriveOperations::Verify(VOID* Context, UINT64 Lba, UINT32 Blocks) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  Self.Last_ = Self.Device_.Controller.VerifySupported != 0 ? NvmeVerifyBlocks(Self.Device_, Lba, Blocks)
                                                            : NvmeReadBlocks(Self.Device_, Lba, Blocks, Self.Buffer_.get());
  switch (Self.Last_) {
    case NvmeAnswer::Done: return DriveOutcome::Passed;
    case NvmeAnswer::Unreadable: return DriveOutcome::Unreadable;
    default: return DriveOutcome::NoAnswer;
  }
}

}  // namespace tarvik
