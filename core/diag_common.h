// The shared-services record: printing, status texts, string helpers, the
// random generator and the two registry operations every service installs
// and removes itself through. Installed first, removed last.
#pragma once

#include "efi/efi.h"

namespace tarvik {

#define DIAG_COMMON_PROTOCOL_GUID \
  EFI_GUID { 0x01B42B4D, 0x7328, 0x48D4, { 0xB8, 0xCA, 0x38, 0xEF, 0x2E, 0x77, 0x57, 0xAF } }
inline constexpr EFI_GUID DiagCommonProtocolGuid = DIAG_COMMON_PROTOCOL_GUID;

struct DiagCommonProtocol;

typedef UINTN(EFIAPI* DIAG_PRINT)(const CHAR16* Format, ...);
typedef UINTN(EFIAPI* DIAG_SPRINT)(CHAR16* Buffer, UINTN BufferSize, const CHAR16* Format, ...);
typedef EFI_STATUS(EFIAPI* DIAG_START_IMAGE_FROM_FILE)(EFI_HANDLE ImageHandle, const CHAR16* FileName);
typedef const CHAR16*(EFIAPI* DIAG_STATUS_TO_STRING)(EFI_STATUS Status);
typedef UINTN(EFIAPI* DIAG_STR_LEN)(const CHAR16* String);
typedef CHAR16*(EFIAPI* DIAG_STR_CAT)(CHAR16* Destination, const CHAR16* Source);
typedef CHAR16*(EFIAPI* DIAG_STR_CPY)(CHAR16* Destination, const CHAR16* Source);
typedef UINT32(EFIAPI* DIAG_RANDOM)();
typedef INT32(EFIAPI* DIAG_RANDOM_RANGE)(INT32 Min, INT32 Max);
typedef VOID(EFIAPI* DIAG_RANDOM_INIT)(UINT32 Seed);
typedef EFI_STATUS(EFIAPI* DIAG_INSTALL_PROTOCOL)(DiagCommonProtocol* Self, EFI_HANDLE* HandlePtr, EFI_GUID* Guid,
                                                  VOID** RecordPtr, EFI_IMAGE_UNLOAD UnloadFn);
typedef EFI_STATUS(EFIAPI* DIAG_UNINSTALL_ALL_PROTOCOLS)(DiagCommonProtocol* Self);
typedef INTN(EFIAPI* DIAG_STR_CMP)(const CHAR16* First, const CHAR16* Second);

struct DiagCommonProtocol {
  UINT32 Revision;
  EFI_HANDLE ImageHandle;
  EFI_SYSTEM_TABLE* SystemTable;
  DIAG_PRINT Print;
  DIAG_SPRINT SPrint;
  DIAG_START_IMAGE_FROM_FILE StartImageFromFile;
  DIAG_STATUS_TO_STRING StatusToString;
  DIAG_STR_LEN StrLen;
  DIAG_STR_CAT StrCat;
  DIAG_STR_CPY StrCpy;
  DIAG_RANDOM Random;
  DIAG_RANDOM_RANGE RandomRange;
  DIAG_RANDOM_INIT RandomInit;
  DIAG_INSTALL_PROTOCOL InstallProtocol;
  DIAG_UNINSTALL_ALL_PROTOCOLS UninstallAllProtocols;
  DIAG_STR_CMP StrCmp;
};

// Sixteen slots of eight bytes, in this order; every module depends on it.
static_assert(__builtin_offsetof(DiagCommonProtocol, ImageHandle) == 1 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, SystemTable) == 2 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, Print) == 3 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, SPrint) == 4 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StartImageFromFile) == 5 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StatusToString) == 6 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StrLen) == 7 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StrCat) == 8 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StrCpy) == 9 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, Random) == 10 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, RandomRange) == 11 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, RandomInit) == 12 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, InstallProtocol) == 13 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, UninstallAllProtocols) == 14 * 8);
static_assert(__builtin_offsetof(DiagCommonProtocol, StrCmp) == 15 * 8);
static_assert(sizeof(DiagCommonProtocol) == 16 * 8);

// Formatted print to the console: at most PrintBufferChars characters.
inline constexpr UINTN PrintBufferChars = 320;
EFIAPI UINTN Print(const CHAR16* Format, ...);
// Formatted print into Buffer of BufferSize bytes.
EFIAPI UINTN SPrint(CHAR16* Buffer, UINTN BufferSize, const CHAR16* Format, ...);

// Allocates, fills and installs the shared-services record on ImageHandle
// and keeps it in gDiagCommon. Returns EFI_ABORTED on any failure.
EFI_STATUS InstallDiagCommon(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Removes the shared-services record installed by InstallDiagCommon.
VOID UninstallDiagCommon();

}  // namespace tarvik
