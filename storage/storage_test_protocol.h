// The storage test module: "Quick Storage Device Test" with six algorithms on
// every ATA drive the firmware's pass-through reaches. Its record is a
// TestModuleProtocol, registered after the memory module.
#pragma once

#include "registry/module_protocol.h"
#include "storage/storage_device.h"

namespace tarvik {

#define STORAGE_TEST_PROTOCOL_GUID \
  EFI_GUID { 0x783E657F, 0x28DB, 0x4055, { 0x98, 0xEB, 0xAE, 0x8B, 0x76, 0x1A, 0xC0, 0x77 } }
inline constexpr EFI_GUID StorageTestProtocolGuid = STORAGE_TEST_PROTOCOL_GUID;

// Publishes a tool over the rotating drives (the bad-sector tool) beside the
// module: it takes over Drives.ToolDevices, borrows the "Storage" texts, and
// on failure prints its message and leaves nothing of itself behind. With no
// rotating drive it publishes nothing and succeeds.
typedef EFI_STATUS (*RotatingDriveToolPublisher)(EFI_HANDLE ImageHandle, StorageDrives& Drives,
                                                 CHAR16** StorageStrings, UINT64 StorageStringCount);

// Finds and identifies the drives, registers the module and installs its
// record, then lists the rotating drives and hands them to PublishTool (none:
// no tool). Each failure prints its message and leaves nothing registered,
// installed or allocated, except that a module without memory for the
// rotating drives' list stays installed alone.
EFI_STATUS InstallStorageTest(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable,
                              RotatingDriveToolPublisher PublishTool);

}  // namespace tarvik
