// Read access to the firmware's SMBIOS structures: by type and instance,
// and their strings as wide texts.
#pragma once

#include "core/service_record.h"

namespace tarvik {

#define SMBIOS_PROTOCOL_GUID \
  EFI_GUID { 0xF4D9527E, 0x1A9E, 0x42FE, { 0x8B, 0x76, 0xEB, 0x8B, 0x99, 0xE8, 0xCC, 0xE4 } }
inline constexpr EFI_GUID SmBiosProtocolGuid = SMBIOS_PROTOCOL_GUID;

// Record receives the Instance-th structure of Type (from 0) in table order,
// or null with EFI_INVALID_PARAMETER.
typedef EFI_STATUS(EFIAPI* SMBIOS_GET_STRUCTURE)(UINT8 Type, VOID** Record, UINT32 Instance);
// Text receives a new pool buffer with string StringNumber (from 1) of
// Record, each byte widened to one character; an absent string is empty.
typedef EFI_STATUS(EFIAPI* SMBIOS_GET_STRING)(const VOID* Record, UINTN StringNumber, CHAR16** Text);

struct SmBiosProtocol {
  ServiceRecordHeader Header;
  SMBIOS_GET_STRUCTURE GetSmbiosStructure;
  SMBIOS_GET_STRING GetSmbiosString;
};
static_assert(__builtin_offsetof(SmBiosProtocol, GetSmbiosStructure) == 5 * 8);
static_assert(__builtin_offsetof(SmBiosProtocol, GetSmbiosString) == 6 * 8);
static_assert(sizeof(SmBiosProtocol) == 7 * 8);

EFI_STATUS InstallSmBios(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
