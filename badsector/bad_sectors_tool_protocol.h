// The bad-sector tool's record, published by the storage module when a
// rotating drive exists. The recovery screens pass a null This, which every
// operation accepts.
#pragma once

#include "core/service_record.h"
#include "registry/module_protocol.h"

namespace tarvik {

#define BAD_SECTORS_TOOL_PROTOCOL_GUID \
  EFI_GUID { 0xDB11DB56, 0xB15E, 0x4874, { 0x86, 0xC0, 0x89, 0x61, 0xBE, 0xB2, 0x00, 0xC1 } }
inline constexpr EFI_GUID BadSectorsToolProtocolGuid = BAD_SECTORS_TOOL_PROTOCOL_GUID;

struct BadSectorsToolProtocol;

typedef UINT64(EFIAPI* TOOL_RUN_TOOL)(BadSectorsToolProtocol* This, UINT64 AlgorithmIndex, UINT64 DeviceIndex,
                                      TEST_PROGRESS_CALLBACK Progress, TEST_MESSAGE_CALLBACK Message);
typedef EFI_STATUS(EFIAPI* TOOL_GET_INDEXED_TEXT)(BadSectorsToolProtocol* This, UINT64 Index, CHAR16** Text);
typedef EFI_STATUS(EFIAPI* TOOL_GET_TEXT)(BadSectorsToolProtocol* This, CHAR16** Text);
typedef UINT64(EFIAPI* TOOL_GET_COUNT)(BadSectorsToolProtocol* This);
typedef EFI_STATUS(EFIAPI* TOOL_GET_RUN_INFO_ROW)(BadSectorsToolProtocol* This, UINT64 Row, UINT64 DeviceIndex,
                                                  CHAR16** Label, CHAR16** Value);
typedef EFI_STATUS(EFIAPI* TOOL_CANCEL_TOOL)(BadSectorsToolProtocol* This);

struct BadSectorsToolProtocol {
  ServiceRecordHeader Header;
  TOOL_RUN_TOOL RunTool;
  TOOL_GET_INDEXED_TEXT GetAlgorithmName;
  TOOL_GET_COUNT GetAlgorithmCount;
  TOOL_GET_RUN_INFO_ROW GetRunInfoRow;
  TOOL_GET_COUNT GetRunInfoRowCount;
  TOOL_GET_TEXT GetToolName;
  TOOL_CANCEL_TOOL CancelTool;
  TOOL_GET_INDEXED_TEXT GetResultText;
  VOID* Unused13;
  TOOL_GET_COUNT GetDeviceCount;
  VOID* Unused15;
  TOOL_GET_INDEXED_TEXT GetDeviceName;
};
static_assert(__builtin_offsetof(BadSectorsToolProtocol, RunTool) == 5 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetAlgorithmName) == 6 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetAlgorithmCount) == 7 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetRunInfoRow) == 8 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetRunInfoRowCount) == 9 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetToolName) == 10 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, CancelTool) == 11 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetResultText) == 12 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetDeviceCount) == 14 * 8);
static_assert(__builtin_offsetof(BadSectorsToolProtocol, GetDeviceName) == 16 * 8);
static_assert(sizeof(BadSectorsToolProtocol) == 17 * 8);

}  // namespace tarvik
