// The ATA command layer: one operation per ATA command, each built in the
// drive's shared command packet and sent with the drive's pass-through,
// blocking, one command at a time.
//
// Group A operations return the firmware's status (0 success). Group B
// operations return ATA_COMMAND_FAILED (1001, the failed-test code) when the
// command failed, else the firmware's status (0, or a warning). A command the
// firmware completes without an error status but whose status block shows
// one (AtaStatus bit 0 or a non-zero AtaError: firmware that retries a
// failed command and then reports success) has failed as well: Group A then
// returns EFI_DEVICE_ERROR.
//
// The registers of the finished command are in Device->StatusBlock;
// LastPacket (set by the SMART and log commands) leads to them as well.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"

namespace tarvik {

inline constexpr UINT64 ATA_COMMAND_FAILED = 1001;

// Timeouts of the pass-through packet, in units of 100 ns.
inline constexpr UINT64 AtaTimeoutUnitsPerSecond = 10000000;
inline constexpr UINT64 AtaDefaultTimeout = 10 * AtaTimeoutUnitsPerSecond;
inline constexpr UINT64 SmartReadDataTimeout = 40 * AtaTimeoutUnitsPerSecond;

// ---- Group A ---------------------------------------------------------------

// IDENTIFY DEVICE into Device->DataBuffer (512 bytes), at the Port and
// PortMultiplierPort given rather than the record's (the probe has not stored
// them yet).
EFIAPI EFI_STATUS AtaIdentifyDevice(StorageDevice* Device, UINT16 Port, UINT16 PortMultiplierPort,
                                    UINT64 TimeoutSeconds);

// READ VERIFY SECTORS (EXT) of Count sectors from Lba; nothing is
// transferred. The 48-bit form (up to 65536 sectors) when the drive's Lba48
// is set, else the 28-bit form, which reaches LBAs up to 0x0FFFFFFF and at
// most 256 sectors. A range the form cannot address is refused with
// EFI_INVALID_PARAMETER without a command, as are the writes below.
EFIAPI EFI_STATUS AtaReadVerify(StorageDevice* Device, UINT64 Lba, UINT32 Count);

// WRITE SECTORS (EXT) of one sector at Lba from Buffer (Length bytes, an I/O
// buffer). Only the bad-sector repair writes to a drive.
EFIAPI EFI_STATUS AtaWriteSector(StorageDevice* Device, UINT64 Lba, VOID* Buffer, UINT32 Length);

// WRITE UNCORRECTABLE EXT (pseudo-uncorrectable, logged) of the sector at
// Lba: marks it unreadable until it is written again. Any failure is non-zero.
EFIAPI EFI_STATUS AtaWriteUncorrectable(StorageDevice* Device, UINT64 Lba);

// ---- Group B ---------------------------------------------------------------

// READ LOG EXT: PageCount pages of LogAddress, from page 0, into
// Device->LogBuffer (PageCount x 512 bytes).
EFIAPI UINT64 AtaReadLogExt(StorageDevice* Device, UINT8 LogAddress, UINT16 PageCount);

// SMART READ DATA / READ ATTRIBUTE THRESHOLDS into Device->DataBuffer.
EFIAPI UINT64 SmartReadData(StorageDevice* Device);
EFIAPI UINT64 SmartReadThresholds(StorageDevice* Device);

EFIAPI UINT64 SmartEnableOperations(StorageDevice* Device);
EFIAPI UINT64 SmartDisableOperations(StorageDevice* Device);

// SMART RETURN STATUS: the verdict is in LBA mid / high of the status block
// (ata::SmartKeyLow/High good, ata::SmartExceededLow/High exceeded).
EFIAPI UINT64 SmartReturnStatus(StorageDevice* Device);

// SMART EXECUTE OFF-LINE IMMEDIATE with Subcommand in LBA low.
EFIAPI UINT64 SmartExecuteOffline(StorageDevice* Device, UINT8 Subcommand, UINT8 Count);

// SMART READ LOG: PageCount pages of LogAddress into Device->LogBuffer. Unlike
// the other Group B commands, a failing firmware status is returned as it
// stands; an error only in the status block gives ATA_COMMAND_FAILED.
EFIAPI UINT64 SmartReadLog(StorageDevice* Device, UINT8 LogAddress, UINT8 PageCount);

// ---- Reading the finished command ------------------------------------------

// The first failing LBA a failed READ VERIFY left in the status block, in
// the form the drive's Lba48 selects.
UINT64 FailingLba(const StorageDevice* Device);

}  // namespace tarvik
