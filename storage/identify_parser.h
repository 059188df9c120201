// IDENTIFY DEVICE data → the identification of a drive. Pure functions over
// the 512 bytes the drive returned: no firmware call, any bytes accepted.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"

namespace tarvik {

inline constexpr UINTN IdentifyDataBytes = 512;

// Fills every field of Info that IDENTIFY decides: all but Temperature.
VOID ParseIdentifyData(const UINT8* Identify, StorageDeviceInfo* Info);

// Whether all 20 serial-number bytes (IDENTIFY bytes 20-39) are printable
// ASCII: how a probe tells a drive from an empty or confused port.
BOOLEAN SerialNumberIsPrintable(const UINT8* Identify);

// The text naming the ATA standard revision of IDENTIFY word 81.
const CHAR16* GetStandardVersionText(UINT16 MinorVersion);

}  // namespace tarvik
