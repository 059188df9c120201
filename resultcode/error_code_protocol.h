// The result-code service: one 16-character code per tested device.
#pragma once

#include "core/service_record.h"
#include "resultcode/result_code_layout.h"

namespace tarvik {

#define ERROR_CODE_PROTOCOL_GUID \
  EFI_GUID { 0x1FA8F7CA, 0x5E1C, 0x4B3D, { 0xAF, 0x8B, 0x83, 0xE1, 0x90, 0x47, 0x62, 0x49 } }
inline constexpr EFI_GUID ErrorCodeProtocolGuid = ERROR_CODE_PROTOCOL_GUID;

// Flags per algorithm index; the code has room for this many algorithms.
inline constexpr UINTN ResultCodeAlgorithmFlags = result_code::AlgorithmFlags;
// Characters of a code, terminator excluded.
inline constexpr UINTN ResultCodeLength = result_code::Length;

// ExecutedFlags and FailedFlags hold ResultCodeAlgorithmFlags bytes each.
// Code receives a new pool buffer the caller frees, or null on failure.
typedef EFI_STATUS(EFIAPI* ERROR_CODE_GENERATE_RESULT_CODE)(const CHAR16* ModuleCode, const UINT8* ExecutedFlags,
                                                            const UINT8* FailedFlags, const CHAR16* SerialNumber,
                                                            const EFI_TIME* RunStart, CHAR16** Code);

struct ErrorCodeProtocol {
  ServiceRecordHeader Header;
  ERROR_CODE_GENERATE_RESULT_CODE GenerateResultCode;
};
static_assert(__builtin_offsetof(ErrorCodeProtocol, GenerateResultCode) == 5 * 8);
static_assert(sizeof(ErrorCodeProtocol) == 6 * 8);

EFI_STATUS InstallErrorCode(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
