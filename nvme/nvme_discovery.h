// Finding the NVMe namespaces: every NVMe pass-through the firmware
// publishes (the controllers connected once when it publishes none), every
// active namespace of each, identified. A controller or namespace whose
// Identify data is refused or unreadable is skipped with a line saying so.
#pragma once

#include "nvme/nvme_device.h"

namespace tarvik {

// Fills Drives (its device table allocated here). EFI_NOT_FOUND, silently,
// when the machine has no NVMe namespace to test; the table is released on
// every failure.
EFI_STATUS DiscoverNvmeDevices(NvmeDrives* Drives);
VOID ReleaseNvmeDevices(NvmeDrives* Drives);

// Reads the controller's and the namespace's Identify data afresh into
// Device; the device is kept as it was when either is refused or garbage.
EFI_STATUS IdentifyNvmeDevice(NvmeDevice& Device);

}  // namespace tarvik
