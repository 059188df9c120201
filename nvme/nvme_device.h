// A discovered NVMe namespace, and the record that owns every one the NVMe
// module found.
#pragma once

#include "efi/efi.h"
#include "efi/protocol/nvm_express_pass_thru.h"
#include "nvme/nvme_parsers.h"

namespace tarvik {

// One namespace is one device: what its controller and it say of
// themselves.
struct NvmeDevice {
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru;
  UINT32 NamespaceId;
  UINT32 NamespaceCount;  // active namespaces of the controller
  NvmeControllerFacts Controller;
  NvmeNamespaceFacts Namespace;
};

// Devices kept at most; discovery stops at the 32nd.
inline constexpr UINT64 MaxNvmeDevices = 32;

struct NvmeDrives {
  NvmeDevice* Devices;  // MaxNvmeDevices records (pool), DeviceCount of them valid
  UINT64 DeviceCount;
};

}  // namespace tarvik
