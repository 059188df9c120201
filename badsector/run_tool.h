// One run of the tool on one drive: the health warning, the confirmations,
// then the operation the user chose.
#pragma once

#include "badsector/tool_state.h"

namespace tarvik {

// The operations RunTool takes: the first two are listed to the user.
enum class ToolOperation : UINT64 {
  CheckBadSectors = 0,
  CheckAndRecover = 1,
  WriteUncorrectable = 2,
};
inline constexpr UINT64 ListedToolOperations = 2;
inline constexpr UINT64 ToolOperationCount = 3;

// RunTool behind the record: Operation and DeviceIndex (into the tool
// device list) are checked, a null Progress does nothing, a missing Message
// is refused (nothing may be written to a drive without the user's answer).
// Returns a test result code, or EFI_INVALID_PARAMETER.
UINT64 RunBadSectorsTool(BadSectorsTool& Tool, UINT64 Operation, UINT64 DeviceIndex, TEST_PROGRESS_CALLBACK Progress,
                         TEST_MESSAGE_CALLBACK Message);

}  // namespace tarvik
