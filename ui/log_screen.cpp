#include "ui/log_screen.h"

#include "core/diag_common.h"
#include "core/file_handle.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "log/log_protocol.h"
#include "ui/key_input.h"
#include "ui/log_view.h"
#include "ui/screen_toolkit.h"
#include "ui/test_run_record.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit UINT64 SaveVolumeCount = 0;
constinit EFI_HANDLE* SaveVolumeHandles = nullptr;
constinit CHAR16** SaveVolumeLabels = nullptr;
constinit UINT64* SaveVolumeSizes = nullptr;

namespace {

// Room for 100 volumes, and a fixed size on purpose: with more file-system
// handles LocateHandle answers EFI_BUFFER_TOO_SMALL and the dialog offers no
// volume, as it always has; not grown like the other queries.
constexpr UINTN HandleBufferBytes = 800;
constexpr UINTN FileSystemInfoBytes = 1104;

enum class LogKind : UINT8 { Test = 0, Recovery = 1 };

LogProtocol* LocateLog() { return LocateService<LogProtocol>(LogProtocolGuid); }

VOID DrawView(LogKind Kind, UINT64 TestIndex) {
  if (Kind == LogKind::Test) {
    DrawTestLogView(TestIndex);
  } else {
    DrawRecoveryLogView();
  }
}

// Reads the label and size of one volume; they stay empty when unreadable.
VOID ReadVolume(UINT64 I) {
  EFI_GUID FileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  VOID* Found = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(SaveVolumeHandles[I], &FileSystemGuid, &Found))) return;
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* FileSystem = static_cast<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL*>(Found);
  FileHandle Root;
  if (EFI_ERROR(FileSystem->OpenVolume(FileSystem, Root.out())) || !Root) return;
  if (EFI_ERROR(Root->SetPosition(Root.get(), 0))) return;
  PoolPtr<UINT8> Info;
  if (EFI_ERROR(Info.Allocate(FileSystemInfoBytes))) return;
  EFI_GUID InfoGuid = EFI_FILE_SYSTEM_INFO_ID;
  UINTN Size = FileSystemInfoBytes;
  if (EFI_ERROR(Root->GetInfo(Root.get(), &InfoGuid, &Size, Info.get()))) return;
  const EFI_FILE_SYSTEM_INFO* System = reinterpret_cast<const EFI_FILE_SYSTEM_INFO*>(Info.get());
  // The label ends where the record ends, whatever the firmware wrote.
  const UINTN LabelRoom = (FileSystemInfoBytes - SIZE_OF_EFI_FILE_SYSTEM_INFO) / sizeof(CHAR16);
  UINTN C = 0;
  for (; C < LabelRoom && C + 1 < VolumeLabelBytes / sizeof(CHAR16) && System->VolumeLabel[C] != 0; ++C)
    SaveVolumeLabels[I][C] = System->VolumeLabel[C];
  SaveVolumeLabels[I][C] = 0;
  SaveVolumeSizes[I] = System->VolumeSize;
}

// The dialog over the log: pick a volume, or Cancel.
VOID SaveDialog() {
  if (EFI_ERROR(FindSaveVolumes(&SaveVolumeCount)) || SaveVolumeCount == 0) {
    ReleaseSaveVolumes();
    ShowMessageBox(UiText(ui_text::NoSaveVolume), static_cast<UINT8>(MessageBoxType::Notice));
    return;
  }
  UINTN Left, Top, Right, Bottom;
  DrawMessageFrame(SaveVolumeCount, UiText(ui_text::SaveLog), &Left, &Top, &Right, &Bottom, 0);
  UINT64 Highlight = 0;
  DrawSaveVolumes(SaveVolumeCount, Highlight, Left, Top);
  for (;;) {
    EFI_INPUT_KEY Key;
    ReadKey(&Key);
    if (Key.ScanCode == SCAN_UP) {
      Highlight = Highlight == 0 ? SaveVolumeCount : Highlight - 1;
      DrawSaveVolumes(SaveVolumeCount, Highlight, Left, Top);
    } else if (Key.ScanCode == SCAN_DOWN) {
      Highlight = Highlight >= SaveVolumeCount ? 0 : Highlight + 1;
      DrawSaveVolumes(SaveVolumeCount, Highlight, Left, Top);
    } else if (Key.UnicodeChar == CharEnter) {
      if (Highlight < SaveVolumeCount) {
        LogProtocol* Logs = LocateLog();
        const UINT64 Code = Logs != nullptr ? Logs->SaveLog(SaveVolumeHandles[Highlight]) : 1;
        if (Code == static_cast<UINT64>(SaveLogCode::Saved)) {
          ShowMessageBox(UiText(ui_text::LogSaved), static_cast<UINT8>(MessageBoxType::Success));
        } else {
          ShowMessageBox(UiText(ui_text::LogNotSaved), static_cast<UINT8>(MessageBoxType::Error));
        }
      }
      break;
    } else if (Key.ScanCode == ScanEscape) {
      break;
    }
  }
  ReleaseSaveVolumes();
}

EFI_STATUS ShowLogScreen(LogKind Kind, UINT64 TestIndex) {
  LogProtocol* Logs = LocateLog();
  if (Logs == nullptr) return EFI_SUCCESS;
  LogScrollTop = 0;
  LogVisibleLines = ScreenRows() > 6 ? ScreenRows() - 6 : 0;
  const auto DrawAll = [&]() {
    DrawScreenFrame(UiText(ui_text::Logs), UiText(ui_text::LogFooter));
    DrawView(Kind, TestIndex);
  };
  DrawAll();
  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (ScrollByKey(Key, &LogScrollTop, LogViewLineCount, LogVisibleLines)) DrawView(Kind, TestIndex);
    if (Key.ScanCode == ScanEscape) break;
    if (Key.ScanCode == SCAN_F2) {
      SaveDialog();
      DrawAll();
    }
  }
  Logs->FreeLog();
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS ShowTestLogScreen(UINT64 TestIndex) {
  LogProtocol* Logs = LocateLog();
  if (Logs == nullptr) return EFI_SUCCESS;
  Logs->BuildTestLog(TestIndex, TestStates, AlgorithmSelection, DeviceSelection, DeviceResultCodes, RunTimes,
                     RunDurations, SummaryLines, SummaryLineCount, TestMessages, TestMessageCounts);
  return ShowLogScreen(LogKind::Test, TestIndex);
}

EFI_STATUS ShowRecoveryLogScreen(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* Start,
                                 const EFI_TIME* End) {
  LogProtocol* Logs = LocateLog();
  if (Logs == nullptr) return EFI_SUCCESS;
  Logs->BuildRecoverLog(LineCount, Lines, OperationIndex, Start, End);
  return ShowLogScreen(LogKind::Recovery, 0);
}

EFI_STATUS FindSaveVolumes(UINT64* Count) {
  *Count = 0;
  PoolPtr<EFI_HANDLE> Handles;
  if (EFI_ERROR(Handles.Allocate(HandleBufferBytes))) return EFI_ABORTED;
  EFI_GUID FileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  UINTN Size = HandleBufferBytes;
  if (EFI_ERROR(gBS->LocateHandle(ByProtocol, &FileSystemGuid, nullptr, &Size, Handles.get()))) return EFI_ABORTED;
  const UINT64 Found = Size / sizeof(EFI_HANDLE);
  VOID* Buffer = nullptr;
  const UINT64 Slots = Found > 0 ? Found : 1;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, Slots * sizeof(EFI_HANDLE), &Buffer))) return EFI_ABORTED;
  SaveVolumeHandles = static_cast<EFI_HANDLE*>(Buffer);
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, Slots * sizeof(CHAR16*), &Buffer))) return EFI_ABORTED;
  SaveVolumeLabels = static_cast<CHAR16**>(Buffer);
  gBS->SetMem(SaveVolumeLabels, Slots * sizeof(CHAR16*), 0);
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, Slots * sizeof(UINT64), &Buffer))) return EFI_ABORTED;
  SaveVolumeSizes = static_cast<UINT64*>(Buffer);
  for (UINT64 I = 0; I < Found; ++I) {
    SaveVolumeHandles[I] = Handles.get()[I];
    SaveVolumeSizes[I] = 0;
    if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, VolumeLabelBytes, &Buffer))) return EFI_ABORTED;
    SaveVolumeLabels[I] = static_cast<CHAR16*>(Buffer);
    SaveVolumeLabels[I][0] = 0;
    *Count = I + 1;
    ReadVolume(I);
  }
  return EFI_SUCCESS;
}

VOID ReleaseSaveVolumes() {
  if (SaveVolumeLabels != nullptr) {
    for (UINT64 I = 0; I < SaveVolumeCount; ++I)
      if (SaveVolumeLabels[I] != nullptr) gBS->FreePool(SaveVolumeLabels[I]);
    gBS->FreePool(SaveVolumeLabels);
  }
  if (SaveVolumeHandles != nullptr) gBS->FreePool(SaveVolumeHandles);
  if (SaveVolumeSizes != nullptr) gBS->FreePool(SaveVolumeSizes);
  SaveVolumeLabels = nullptr;
  SaveVolumeHandles = nullptr;
  SaveVolumeSizes = nullptr;
  SaveVolumeCount = 0;
}

VOID DrawSaveVolumes(UINT64 Count, UINT64 Highlight, UINTN Left, UINTN Top) {
  for (UINT64 I = 0; I < Count; ++I) {
    MoveCursor(Left, Top + I);
    SetColour(I == Highlight ? ui_colour::Highlight : ui_colour::Screen);
    Print(u"%s %s (%d GB)", UiText(ui_text::Device), SaveVolumeLabels[I] != nullptr ? SaveVolumeLabels[I] : u"",
          static_cast<INT32>(SaveVolumeSizes[I] / (1ull << 30) + 1));
  }
  MoveCursor(Left, Top + Count + 1);
  SetColour(Highlight == Count ? ui_colour::Highlight : ui_colour::Screen);
  Print(u"%s", UiText(ui_text::Cancel));
}

}  // namespace tarvik
