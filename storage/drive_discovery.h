// Finding the ATA drives behind every pass-through instance and identifying
// them, into the storage module's StorageDrives record.
#pragma once

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"
#include "storage/storage_device.h"

namespace tarvik {

// Fills Drives (zeroed by the caller, left in place afterwards) with every
// drive of every physical pass-through instance, up to MaxStorageDevices.
// With no pass-through, every controller is connected once and the search
// repeated. Prints "Protocol AtaPassThrough not found!" or "Ata Device not
// found!" and returns EFI_ABORTED when there is none; an OpenProtocol
// failure returns its status. On failure nothing stays allocated.
EFI_STATUS DiscoverStorageDevices(StorageDrives* Drives);

// Tries the device at Port / PortMultiplierPort of PassThru: allocates the
// record's status block and data page and sends IDENTIFY (2 s). 0 when a
// drive answered with a printable serial number and the record was filled;
// otherwise the record is left as it was, its pages returned. A packet
// device is reset on the way out. Device->CommandPacket must be set.
EFI_STATUS ProbeDevice(EFI_ATA_PASS_THRU_PROTOCOL* PassThru, UINT16 Port, UINT16 PortMultiplierPort,
                       StorageDevice* Device);

// Allocates the info table and identifies every drive. Any failure releases
// the info table and returns EFI_ABORTED.
EFI_STATUS IdentifyAllDevices(StorageDrives* Drives);

// (Re)reads IDENTIFY (20 s) and the SMART data and rewrites Device->Info. A
// failed IDENTIFY returns its status and changes nothing, as does data whose
// serial number is not text (EFI_DEVICE_ERROR); a failed SMART read leaves
// the temperature 0.
EFI_STATUS IdentifyDevice(StorageDevice* Device);

// 0 rotation not reported, 1 solid state, the rate in rpm for 1025-65534,
// 0 for any other word 217.
INT32 GetRotationClass(const StorageDevice* Device);

// Lists the rotating drives (NonRotating clear) for the bad-sector tool. No
// such drive: no list, 0 returned. EFI_OUT_OF_RESOURCES when the list cannot
// be allocated.
EFI_STATUS BuildToolDeviceList(StorageDrives* Drives);

// Returns everything Drives holds (tool list, info table, every drive's
// pages, the device table) and zeroes it.
VOID ReleaseStorageDevices(StorageDrives* Drives);

}  // namespace tarvik
