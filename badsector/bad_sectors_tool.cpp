// The tool's record: its operations, its publication and its unload. The
// recovery screens call the operations with a null This, so every one finds
// the tool through InstalledTool, set while the record is installed.
#include "badsector/bad_sectors_tool.h"

#include "badsector/run_tool.h"
#include "badsector/tool_state.h"
#include "core/diag_common.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/pool_text.h"

namespace tarvik {
namespace {

constinit BadSectorsTool* InstalledTool = nullptr;

constexpr UINT64 RunInfoRows = 4;
// Rows are handed out in 2048-byte buffers, formatted to at most 511
// characters.
constexpr UINTN RowBufferBytes = 2048;
constexpr UINTN RowFormatBytes = 1024;
constexpr UINT64 BytesPerGigabyte = 1ULL << 30;

EFI_STATUS CopyToolText(UINT64 Id, CHAR16** Text) {
  if (Text == nullptr || InstalledTool == nullptr) return EFI_ABORTED;
  return CopyTextToPool(InstalledTool->Text(Id), Text);
}

EFIAPI UINT64 RunTool(BadSectorsToolProtocol*, UINT64 AlgorithmIndex, UINT64 DeviceIndex,
                      TEST_PROGRESS_CALLBACK Progress, TEST_MESSAGE_CALLBACK Message) {
  if (InstalledTool == nullptr) return EFI_ABORTED;
  return RunBadSectorsTool(*InstalledTool, AlgorithmIndex, DeviceIndex, Progress, Message);
}

// Write uncorrectable (2) is runnable but has no name: it is not offered.
EFIAPI EFI_STATUS GetAlgorithmName(BadSectorsToolProtocol*, UINT64 Index, CHAR16** Name) {
  if (Index >= ListedToolOperations) return EFI_ABORTED;
  return CopyToolText(Index == 0 ? tool_text::CheckBadSectors : tool_text::CheckAndRecover, Name);
}

EFIAPI UINT64 GetAlgorithmCount(BadSectorsToolProtocol*) { return ListedToolOperations; }
EFIAPI UINT64 GetRunInfoRowCount(BadSectorsToolProtocol*) { return RunInfoRows; }

// Row 0 the drive, 1 its size, 2 its sectors, 3 the sectors being verified.
EFI_STATUS FormatRunInfoRow(const BadSectorsTool& Tool, UINT64 Row, UINT64 DeviceIndex, CHAR16* Label,
                            CHAR16* Value) {
  const StorageDeviceInfo& Info = *Tool.Devices[DeviceIndex]->Info;
  Value[0] = 0;
  switch (Row) {
    case 0:
      SPrint(Label, RowFormatBytes, u"%s %d: %s %s", Tool.Text(tool_text::Device), static_cast<UINT32>(DeviceIndex),
             Info.Manufacturer, Info.Model);
      break;
    case 1:
      SPrint(Label, RowFormatBytes, u"%s", Tool.Text(tool_text::Size));
      SPrint(Value, RowFormatBytes, u"%d GB", static_cast<UINT32>(Info.SizeBytes / BytesPerGigabyte));
      break;
    case 2:
      SPrint(Label, RowFormatBytes, u"%s", Tool.Text(tool_text::TotalSectors));
      SPrint(Value, RowFormatBytes, u"%ld", Info.TotalSectors);
      break;
    default:
      SPrint(Label, RowFormatBytes, u"%s", Tool.Text(tool_text::TestingSectors));
      SPrint(Value, RowFormatBytes, u"%ld - %ld", Tool.Run.ToolRangeStart, Tool.Run.ToolRangeEnd);
      break;
  }
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS GetRunInfoRow(BadSectorsToolProtocol*, UINT64 Row, UINT64 DeviceIndex, CHAR16** Label,
                                CHAR16** Value) {
  if (Label == nullptr || Value == nullptr || InstalledTool == nullptr) return EFI_ABORTED;
  if (Row >= RunInfoRows || DeviceIndex >= InstalledTool->DeviceCount) return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> LabelText, ValueText;
  EFI_STATUS Status = LabelText.Allocate(RowBufferBytes);
  if (!EFI_ERROR(Status)) Status = ValueText.Allocate(RowBufferBytes);
  if (EFI_ERROR(Status)) return Status;
  FormatRunInfoRow(*InstalledTool, Row, DeviceIndex, LabelText.get(), ValueText.get());
  *Label = LabelText.release();
  *Value = ValueText.release();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS GetToolName(BadSectorsToolProtocol*, CHAR16** Name) {
  return CopyToolText(tool_text::ToolName, Name);
}

// Runs from the recovery screen's key poll, between any two steps of a run.
EFIAPI EFI_STATUS CancelTool(BadSectorsToolProtocol*) {
  if (InstalledTool != nullptr) InstalledTool->Run.Cancel();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS GetResultText(BadSectorsToolProtocol*, UINT64, CHAR16** Text) {
  return CopyToolText(tool_text::FailedToRun, Text);
}

EFIAPI UINT64 GetDeviceCount(BadSectorsToolProtocol*) {
  return InstalledTool != nullptr ? InstalledTool->DeviceCount : 0;
}

EFIAPI EFI_STATUS GetDeviceName(BadSectorsToolProtocol*, UINT64 DeviceIndex, CHAR16** Name) {
  if (Name == nullptr || InstalledTool == nullptr) return EFI_ABORTED;
  if (DeviceIndex >= InstalledTool->DeviceCount) return EFI_INVALID_PARAMETER;
  return CopyTextToPool(InstalledTool->Devices[DeviceIndex]->Info->Model, Name);
}

VOID FillRecord(BadSectorsToolProtocol& Record, EFI_HANDLE ImageHandle) {
  Record.Header.Revision = 1;
  Record.Header.ImageHandle = ImageHandle;
  Record.Header.Guid = BadSectorsToolProtocolGuid;
  Record.RunTool = RunTool;
  Record.GetAlgorithmName = GetAlgorithmName;
  Record.GetAlgorithmCount = GetAlgorithmCount;
  Record.GetRunInfoRow = GetRunInfoRow;
  Record.GetRunInfoRowCount = GetRunInfoRowCount;
  Record.GetToolName = GetToolName;
  Record.CancelTool = CancelTool;
  Record.GetResultText = GetResultText;
  Record.GetDeviceCount = GetDeviceCount;
  Record.GetDeviceName = GetDeviceName;
}

// Frees the tool device list and the tool, record included.
EFIAPI EFI_STATUS UnloadTool(EFI_HANDLE) {
  BadSectorsTool* Tool = InstalledTool;
  if (Tool == nullptr) return EFI_SUCCESS;
  InstalledTool = nullptr;
  if (Tool->Devices != nullptr) gBS->FreePool(Tool->Devices);
  return gBS->FreePool(Tool);
}

}  // namespace

EFI_STATUS PublishBadSectorsTool(EFI_HANDLE ImageHandle, StorageDrives& Drives, CHAR16** StorageStrings,
                                 UINT64 StorageStringCount) {
  if (Drives.ToolDevices == nullptr || Drives.ToolDeviceCount == 0) return EFI_SUCCESS;
  // The list is the tool's from here on: kept with it, or freed on failure.
  PoolPtr<StorageDevice*> Devices(Drives.ToolDevices);
  const UINT64 DeviceCount = Drives.ToolDeviceCount;
  Drives.ToolDevices = nullptr;
  Drives.ToolDeviceCount = 0;
  if (InstalledTool != nullptr) return EFI_ALREADY_STARTED;
  DiagCommonProtocol* Common = LocateService<DiagCommonProtocol>(DiagCommonProtocolGuid);
  if (Common == nullptr) return EFI_ABORTED;

  PoolPtr<BadSectorsTool> Tool;
  EFI_STATUS Status = Tool.Allocate(sizeof(BadSectorsTool));
  if (EFI_ERROR(Status)) return Status;
  *Tool.get() = BadSectorsTool{};
  FillRecord(Tool->Record, ImageHandle);
  Tool->Common = Common;
  Tool->Devices = Devices.get();
  Tool->DeviceCount = DeviceCount;
  Tool->Strings = StorageStrings;
  Tool->StringCount = StorageStrings != nullptr ? StorageStringCount : 0;

  InstalledTool = Tool.get();
  EFI_HANDLE Handle = ImageHandle;
  EFI_GUID Guid = BadSectorsToolProtocolGuid;
  VOID* Record = &Tool->Record;
  Status = Common->InstallProtocol(Common, &Handle, &Guid, &Record, UnloadTool);
  if (EFI_ERROR(Status)) {
    InstalledTool = nullptr;
    Common->Print(u"Fail during Bad Sectors Tool Protocol installation in Image Handle: %r\n", Status);
    return Status;
  }
  Tool.release();
  Devices.release();
  return EFI_SUCCESS;
}

}  // namespace tarvik
