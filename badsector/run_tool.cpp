#include "badsector/run_tool.h"

#include "badsector/health_warning.h"
#include "badsector/sector_repair.h"
#include "badsector/surface_scan.h"
#include "badsector/write_uncorrectable.h"
#include "registry/module_protocol.h"

namespace tarvik {
namespace {

EFIAPI EFI_STATUS IgnoreProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

// Operation 0.
UINT64 CheckBadSectors(BadSectorsTool& Tool, StorageDevice& Device) {
  ToolRun& Run = Tool.Run;
  const ScanOutcome Scan = SurfaceScan(Tool, Device, nullptr);
  UINT64 Result = TEST_RESULT_PASSED;
  if (Scan.Bad > 0) {
    ToolLine(Run, ToolLineChars, u"# %s %d #", Tool.Text(tool_text::BadSectorsFound), static_cast<UINT32>(Scan.Bad));
    Result = TEST_RESULT_FAILED;
  } else {
    ToolLine(Run, ToolLineChars, u"# %s #", Tool.Text(tool_text::NoBadSectorFound));
  }
  if (!Run.Running()) {
    ToolLine(Run, ToolLineChars, u"%s", Tool.Text(tool_text::CanceledByUser));
    Result = TEST_RESULT_CANCELED;
  }
  return Result;
}

// The confirmations of each operation, in the order they are asked.
struct Confirmations {
  UINT64 Texts[2];
  UINT64 Count;
};
constexpr Confirmations OperationConfirmations[ToolOperationCount] = {
    {{tool_text::ScanTakesAnHour, 0}, 1},
    {{tool_text::BackupBeforeRecovery, tool_text::ContinueRecovery}, 2},
    {{tool_text::BackupBeforeRecovery, 0}, 1},
};

bool Confirmed(BadSectorsTool& Tool, UINT64 Operation) {
  const Confirmations& Asked = OperationConfirmations[Operation];
  for (UINT64 I = 0; I < Asked.Count; ++I)
    if (!Tool.Run.Ask(Tool.Text(Asked.Texts[I]), ToolMessageKind::Confirmation)) return false;
  return true;
}

}  // namespace

UINT64 RunBadSectorsTool(BadSectorsTool& Tool, UINT64 Operation, UINT64 DeviceIndex, TEST_PROGRESS_CALLBACK Progress,
                         TEST_MESSAGE_CALLBACK Message) {
  if (Operation >= ToolOperationCount || DeviceIndex >= Tool.DeviceCount || Message == nullptr)
    return EFI_INVALID_PARAMETER;
  ToolRun& Run = Tool.Run;
  Run.ToolRunning = 1;
  Run.ToolRangeStart = 0;
  Run.ToolRangeEnd = 0;
  Run.ToolProgress = 0;
  Run.Context = &Tool.Record;
  Run.ProgressCallback = Progress != nullptr ? Progress : IgnoreProgress;
  Run.MessageCallback = Message;
  StorageDevice& Device = *Tool.Devices[DeviceIndex];

  if (!AcknowledgeHealthWarning(Tool, Device)) return TEST_RESULT_CANCELED;
  if (!Confirmed(Tool, Operation)) return TEST_RESULT_CANCELED;
  switch (static_cast<ToolOperation>(Operation)) {
    case ToolOperation::CheckBadSectors: return CheckBadSectors(Tool, Device);
    case ToolOperation::CheckAndRecover: return CheckAndRecoverBadSectors(Tool, Device);
    case ToolOperation::WriteUncorrectable: return WriteUncorrectableSectors(Tool, Device);
  }
  return EFI_INVALID_PARAMETER;
}

}  // namespace tarvik
