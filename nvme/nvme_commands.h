// The NVMe commands the module sends, one function each, through the
// controller's pass-through. These are all of them: the module sends no
// command that writes to the medium or changes the controller's settings.
#pragma once

#include "efi/efi.h"
#include "efi/protocol/nvm_express_pass_thru.h"
#include "nvme/nvme_device.h"

namespace tarvik {

namespace nvme_opcode {
// Admin commands.
inline constexpr UINT8 GetLogPage = 0x02;
inline constexpr UINT8 Identify = 0x06;
inline constexpr UINT8 DeviceSelfTest = 0x14;
// NVM commands.
inline constexpr UINT8 Read = 0x02;
inline constexpr UINT8 Verify = 0x0C;
}  // namespace nvme_opcode

namespace nvme_log {
inline constexpr UINT8 ErrorInformation = 0x01;
inline constexpr UINT8 Health = 0x02;
inline constexpr UINT8 SelfTest = 0x06;
}  // namespace nvme_log

namespace nvme_self_test {
inline constexpr UINT8 Short = 0x1;
inline constexpr UINT8 Extended = 0x2;
inline constexpr UINT8 Abort = 0xF;
}  // namespace nvme_self_test

inline constexpr UINT32 NvmeAllNamespaces = 0xFFFFFFFF;
inline constexpr UINTN NvmePageBytes = 4096;

enum class NvmeAnswer : UINT8 {
  Done,
  Refused,     // completed with an error status other than a media error
  Unreadable,  // completed with a media error (Unrecovered Read Error and its kin)
  Silent,      // never completed: timeout, reset or a broken controller
};

// Identify with CNS 0 (namespace), 1 (controller) or 2 (active namespace
// list) into Page (NvmePageBytes).
NvmeAnswer NvmeIdentify(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 Cns, VOID* Page);
// The first Bytes (a multiple of 4) of log LogId.
NvmeAnswer NvmeGetLogPage(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 LogId,
                          VOID* Buffer, UINT32 Bytes);
// Device Self-test with code Code (start short or extended, or abort).
NvmeAnswer NvmeDeviceSelfTest(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8 Code);
// Verify, or Read into Buffer (Blocks x block size bytes) when Buffer is
// given, of Blocks blocks from Lba.
NvmeAnswer NvmeVerifyBlocks(const NvmeDevice& Device, UINT64 Lba, UINT32 Blocks);
NvmeAnswer NvmeReadBlocks(const NvmeDevice& Device, UINT64 Lba, UINT32 Blocks, VOID* Buffer);

// Pages of boot-services memory, page aligned (enough for any IoAlign a
// controller names), returned on destruction.
class NvmePages {
 public:
  explicit NvmePages(UINTN Bytes);
  ~NvmePages();
  NvmePages(const NvmePages&) = delete;
  NvmePages& operator=(const NvmePages&) = delete;
  UINT8* get() const { return Buffer_; }
  explicit operator bool() const { return Buffer_ != nullptr; }

 private:
  UINT8* Buffer_ = nullptr;
  UINTN Pages_ = 0;
};

}  // namespace tarvik
