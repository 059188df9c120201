// SMBIOS strings as the screens, the memory module and the result codes
// read them: new pool texts, released by their owner.
#pragma once

#include "core/pool.h"
#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_structures.h"

namespace tarvik {

// String Number of the structure at Record (empty for number 0 or a string
// the set lacks); null when it cannot be read.
inline PoolPtr<CHAR16> SmbiosString(SmBiosProtocol& SmBios, const VOID* Record, UINT8 Number) {
  CHAR16* Text = nullptr;
  if (EFI_ERROR(SmBios.GetSmbiosString(Record, Number, &Text))) return PoolPtr<CHAR16>();
  return PoolPtr<CHAR16>(Text);
}

// The machine's serial number from the System Information structure, which
// the result codes are made from; null without that structure. A structure
// too short to name the string gives an empty text.
inline PoolPtr<CHAR16> SystemSerialNumber(SmBiosProtocol& SmBios) {
  VOID* Record = nullptr;
  if (EFI_ERROR(SmBios.GetSmbiosStructure(static_cast<UINT8>(SmbiosType::SystemInformation), &Record, 0)))
    return PoolPtr<CHAR16>();
  return SmbiosString(SmBios, Record, ReadSmbiosStructure<SmbiosSystemInformation>(Record).SerialNumber);
}

}  // namespace tarvik
