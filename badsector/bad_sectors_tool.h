// Publishing the bad-sector tool: the storage module's installation calls
// this once its own record is installed.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"

namespace tarvik {

// Publishes the tool over the rotating drives that BuildToolDeviceList put
// in Drives: takes over Drives.ToolDevices (cleared here; the tool frees the
// list at its unload), allocates and fills the record and installs it under
// BadSectorsToolProtocolGuid on ImageHandle through InstallProtocol, with
// the tool's unload as its clean-up. StorageStrings is the "Storage" table,
// which the storage module keeps and frees after the tool is gone (teardown
// runs newest first); null gives empty texts.
//
// No rotating drive in Drives: nothing is published, EFI_SUCCESS.
// On failure the tool list is freed and nothing of the tool stays allocated
// or installed; an installation refused by the firmware prints "Fail during
// Bad Sectors Tool Protocol installation in Image Handle: %r". The storage
// module then withdraws itself and returns the status.
EFI_STATUS PublishBadSectorsTool(EFI_HANDLE ImageHandle, StorageDrives& Drives, CHAR16** StorageStrings,
                                 UINT64 StorageStringCount);

}  // namespace tarvik
