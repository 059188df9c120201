// Text resources: the three string tables every visible text comes from,
// and the firmware's language as read from SMBIOS.
#pragma once

#include "core/service_record.h"

namespace tarvik {

#define LANGUAGE_PROTOCOL_GUID \
  EFI_GUID { 0xE042195C, 0x7E59, 0x4A08, { 0xBA, 0xB1, 0xE2, 0x37, 0x54, 0x7C, 0xA1, 0xEB } }
inline constexpr EFI_GUID LanguageProtocolGuid = LANGUAGE_PROTOCOL_GUID;

typedef EFI_STATUS(EFIAPI* LANGUAGE_SET_LANGUAGE)(const CHAR16* Code);
typedef UINT64(EFIAPI* LANGUAGE_GET_LANGUAGE)();
// "Int...", "Mem..." or "Sto...": Count and Table receive a new pointer
// array and new copies of every string, all owned by the caller. Any other
// name leaves both untouched.
typedef EFI_STATUS(EFIAPI* LANGUAGE_GET_STRING_TABLE)(const CHAR16* Name, UINT64* Count, CHAR16*** Table);
typedef CHAR16*(EFIAPI* LANGUAGE_GET_STRING)(UINT64 Identifier, CHAR16** Table);

struct LanguageProtocol {
  ServiceRecordHeader Header;
  LANGUAGE_SET_LANGUAGE SetLanguage;
  LANGUAGE_GET_LANGUAGE GetLanguage;
  LANGUAGE_GET_STRING_TABLE GetStringTable;
  LANGUAGE_GET_STRING GetString;
};
static_assert(__builtin_offsetof(LanguageProtocol, SetLanguage) == 5 * 8);
static_assert(__builtin_offsetof(LanguageProtocol, GetLanguage) == 6 * 8);
static_assert(__builtin_offsetof(LanguageProtocol, GetStringTable) == 7 * 8);
static_assert(__builtin_offsetof(LanguageProtocol, GetString) == 8 * 8);
static_assert(sizeof(LanguageProtocol) == 9 * 8);

EFI_STATUS InstallLanguage(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
