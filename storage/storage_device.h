// A discovered ATA drive, its identification, and the record that owns every
// drive of the storage module.
#pragma once

#include "efi/efi.h"
#include "efi/protocol/ata_pass_thru.h"

namespace tarvik {

// Text field sizes in characters, the terminating NUL included.
inline constexpr UINTN UidChars = 50;
inline constexpr UINTN DisplayNameChars = 61;
inline constexpr UINTN DeviceTypeChars = 15;
inline constexpr UINTN ManufacturerChars = 41;
inline constexpr UINTN ModelChars = 41;
inline constexpr UINTN SerialNumberChars = 21;
inline constexpr UINTN FirmwareRevisionChars = 9;

// What IDENTIFY DEVICE and the SMART data say of one drive. Rewritten in
// place by every IdentifyDevice.
struct StorageDeviceInfo {
  CHAR16 Uid[UidChars];                            // "Manufacturer-Model-SerialNumber"
  CHAR16 DisplayName[DisplayNameChars];            // model + " ATA Device" / " ATAPI Device"
  CHAR16 DeviceType[DeviceTypeChars];              // "Internal HDD"
  CHAR16 Manufacturer[ManufacturerChars];
  CHAR16 Model[ModelChars];
  CHAR16 SerialNumber[SerialNumberChars];          // leading spaces removed
  CHAR16 FirmwareRevision[FirmwareRevisionChars];  // as the drive reports it
  const CHAR16* StandardVersionText;               // constant text of the minor version
  UINT64 TotalSectors;                             // 0 without the 48-bit feature set
  UINT64 SizeBytes;
  UINT32 CacheBytes;
  UINT32 LogicalSectorSize;
  UINT32 PhysicalSectorSize;
  UINT16 MajorVersion;  // word 80, with 0x100 added above 38
  UINT16 RotationRate;  // word 217: 0 not reported, 1 solid state, else rpm
  UINT16 MinorVersion;  // word 81
  INT8 Temperature;     // degrees Celsius from SMART attribute 194, 0 unknown
  UINT8 Lba48;          // more than 0x0FFFFFFF sectors: reads and writes use the 48-bit form
  UINT8 NonRotating;
  UINT8 SmartSupported;
  UINT8 SelfTestSupported;
  UINT8 SmartEnabled;
};
static_assert(__builtin_offsetof(StorageDeviceInfo, DisplayName) == 100);
static_assert(__builtin_offsetof(StorageDeviceInfo, FirmwareRevision) == 458);
static_assert(__builtin_offsetof(StorageDeviceInfo, StandardVersionText) == 480);
static_assert(__builtin_offsetof(StorageDeviceInfo, TotalSectors) == 488);
static_assert(__builtin_offsetof(StorageDeviceInfo, CacheBytes) == 504);
static_assert(__builtin_offsetof(StorageDeviceInfo, MajorVersion) == 516);
static_assert(__builtin_offsetof(StorageDeviceInfo, Temperature) == 522);
static_assert(__builtin_offsetof(StorageDeviceInfo, SmartEnabled) == 527);
static_assert(sizeof(StorageDeviceInfo) == 528);

// One drive of the device table. The fields up to DataBuffer are the
// published layout (the storage record hands the table out); CommandPacket
// comes after them: every drive of a table points at the one command packet
// of its StorageDrives, which the command layer fills for each command.
struct StorageDevice {
  EFI_ATA_PASS_THRU_PROTOCOL* PassThru;
  UINT16 Port;
  UINT16 PortMultiplierPort;  // 0xFFFF for a drive without a port multiplier
  // The shared packet once a SMART or log command set it; readers find the
  // finished command's registers through its Asb.
  EFI_ATA_PASS_THRU_COMMAND_PACKET* LastPacket;
  EFI_ATA_STATUS_BLOCK* StatusBlock;  // one I/O page, named by every command of this drive
  StorageDeviceInfo* Info;
  VOID* LogBuffer;   // I/O pages of the log read in progress; owned by the reader
  VOID* DataBuffer;  // one I/O page: IDENTIFY, SMART data and thresholds
  EFI_ATA_PASS_THRU_COMMAND_PACKET* CommandPacket;  // the table's shared packet
};
static_assert(__builtin_offsetof(StorageDevice, PassThru) == 0);
static_assert(__builtin_offsetof(StorageDevice, Port) == 8);
static_assert(__builtin_offsetof(StorageDevice, PortMultiplierPort) == 10);
static_assert(__builtin_offsetof(StorageDevice, LastPacket) == 16);
static_assert(__builtin_offsetof(StorageDevice, StatusBlock) == 24);
static_assert(__builtin_offsetof(StorageDevice, Info) == 32);
static_assert(__builtin_offsetof(StorageDevice, LogBuffer) == 40);
static_assert(__builtin_offsetof(StorageDevice, DataBuffer) == 48);
static_assert(__builtin_offsetof(StorageDevice, CommandPacket) == 56);
static_assert(sizeof(StorageDevice) == 64);

// Drives kept at most; discovery stops at the 100th.
inline constexpr UINT64 MaxStorageDevices = 100;

// Every drive the storage module found, and what the command layer shares
// between them. Owned by the storage module, released by
// ReleaseStorageDevices. The devices point into this record (CommandPacket):
// it must stay where it is from discovery to release.
struct StorageDrives {
  StorageDevice* Devices;  // device table of MaxStorageDevices records (pool)
  UINT64 DeviceCount;      // valid records, from the first
  StorageDeviceInfo* Infos;  // DeviceCount entries; Devices[i].Info == &Infos[i]
  StorageDevice** ToolDevices;  // the rotating drives in table order (pool), or null
  UINT64 ToolDeviceCount;
  EFI_ATA_PASS_THRU_COMMAND_PACKET CommandPacket;  // one command in flight at a time
};

}  // namespace tarvik
