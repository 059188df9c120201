#include "ui/log_screen.h"

#include "core/diag_common.h"
#include "core/file_handle.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/pool_text.h"
#include "log/log_protocol.h"
#include "ui/key_input.h"
#include "ui/log_view.h"
#include "ui/screen_toolkit.h"
#include "ui/run_record.h"
#include "ui/ui_state.h"

namespace tarvik {

namespace {

// Room for 100 volumes, and a fixed size on purpose: with more file-system
// handles LocateHandle answers EFI_BUFFER_TOO_SMALL and the dialog offers no
// volume, as it always has; not grown like the other queries.
constexpr UINTN HandleBufferBytes = 800;
constexpr UINTN FileSystemInfoBytes = 1104;

enum class LogKind : UINT8 { Test = 0, Recovery = 1 };

// The log screen's record, on the stack of the screen's entry.
struct LogScreen {
  LogKind Kind = LogKind::Test;
  UINT64 TestIndex = 0;
  LogViewState View;
};

LogProtocol* LocateLog() { return LocateService<LogProtocol>(LogProtocolGuid); }

// The log the service built for the screen, freed when the screen is left.
class BuiltLog {
 public:
  explicit BuiltLog(LogProtocol& Logs) : Logs_(Logs) {}
  ~BuiltLog() { Logs_.FreeLog(); }
  BuiltLog(const BuiltLog&) = delete;
  BuiltLog& operator=(const BuiltLog&) = delete;

 private:
  LogProtocol& Logs_;
};

VOID DrawView(LogScreen& Screen) {
  if (Screen.Kind == LogKind::Test) {
    DrawTestLogView(Screen.View, Screen.TestIndex);
  } else {
    DrawRecoveryLogView(Screen.View);
  }
}

// Reads the label and size of volume I; they stay empty when unreadable.
VOID ReadVolume(SaveVolumes& Volumes, UINT64 I) {
  EFI_GUID FileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  VOID* Found = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Volumes.SaveVolumeHandles[I], &FileSystemGuid, &Found))) return;
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
    Volumes.SaveVolumeLabels[I][C] = System->VolumeLabel[C];
  Volumes.SaveVolumeLabels[I][C] = 0;
  Volumes.SaveVolumeSizes[I] = System->VolumeSize;
}

// The dialog over the log: pick a volume, or Cancel.
VOID SaveDialog() {
  SaveVolumes Volumes;
  if (EFI_ERROR(FindSaveVolumes(Volumes)) || Volumes.SaveVolumeCount == 0) {
    ShowMessageBox(UiText(ui_text::NoSaveVolume), static_cast<UINT8>(MessageBoxType::Notice));
    return;
  }
  const UINT64 Count = Volumes.SaveVolumeCount;
  UINTN Left, Top, Right, Bottom;
  DrawMessageFrame(Count, UiText(ui_text::SaveLog), &Left, &Top, &Right, &Bottom, 0);
  UINT64 Highlight = 0;
  DrawSaveVolumes(Volumes, Highlight, Left, Top, Right);
  for (;;) {
    EFI_INPUT_KEY Key;
    ReadKey(&Key);
    if (Key.ScanCode == SCAN_UP) {
      Highlight = Highlight == 0 ? Count : Highlight - 1;
      DrawSaveVolumes(Volumes, Highlight, Left, Top, Right);
    } else if (Key.ScanCode == SCAN_DOWN) {
      Highlight = Highlight >= Count ? 0 : Highlight + 1;
      DrawSaveVolumes(Volumes, Highlight, Left, Top, Right);
    } else if (Key.UnicodeChar == CharEnter) {
      if (Highlight < Count) {
        LogProtocol* Logs = LocateLog();
        const UINT64 Code = Logs != nullptr ? Logs->SaveLog(Volumes.SaveVolumeHandles[Highlight]) : 1;
        if (Code == static_cast<UINT64>(SaveLogCode::Saved)) {
          ShowMessageBox(UiText(ui_text::LogSaved), static_cast<UINT8>(MessageBoxType::Success));
        } else {
          ShowMessageBox(UiText(ui_text::LogNotSaved), static_cast<UINT8>(MessageBoxType::Error));
        }
      }
      return;
    } else if (Key.ScanCode == ScanEscape) {
      return;
    }
  }
}

// Shows the log the service has built until ESC, then frees it.
EFI_STATUS RunLogScreen(LogProtocol& Logs, LogScreen& Screen) {
  const BuiltLog Built(Logs);
  LogViewState& View = Screen.View;
  View.LogScrollTop = 0;
  View.LogVisibleLines = ScreenRows() > 6 ? ScreenRows() - 6 : 0;
  const auto DrawAll = [&]() {
    DrawScreenFrame(UiText(ui_text::Logs), UiText(ui_text::LogFooter));
    DrawView(Screen);
  };
  DrawAll();
  for (;;) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    if (ScrollByKey(Key, &View.LogScrollTop, View.LogViewLineCount, View.LogVisibleLines)) DrawView(Screen);
    if (Key.ScanCode == ScanEscape) return EFI_SUCCESS;
    if (Key.ScanCode == SCAN_F2) {
      SaveDialog();
      DrawAll();
    }
  }
}

}  // namespace

EFI_STATUS ShowTestLogScreen(UINT64 TestIndex, const TestRunRecord& Run) {
  LogProtocol* Logs = LocateLog();
  if (Logs == nullptr) return EFI_SUCCESS;
  Logs->BuildTestLog(TestIndex, Run.TestStates, Run.AlgorithmSelection, Run.DeviceSelection, Run.DeviceResultCodes,
                     Run.RunTimes, Run.RunDurations, Run.SummaryLines, Run.SummaryLineCount, Run.TestMessages,
                     Run.TestMessageCounts);
  LogScreen Screen;
  Screen.Kind = LogKind::Test;
  Screen.TestIndex = TestIndex;
  return RunLogScreen(*Logs, Screen);
}

EFI_STATUS ShowRecoveryLogScreen(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* Start,
                                 const EFI_TIME* End) {
  LogProtocol* Logs = LocateLog();
  if (Logs == nullptr) return EFI_SUCCESS;
  Logs->BuildRecoverLog(LineCount, Lines, OperationIndex, Start, End);
  LogScreen Screen;
  Screen.Kind = LogKind::Recovery;
  return RunLogScreen(*Logs, Screen);
}

EFI_STATUS FindSaveVolumes(SaveVolumes& Volumes) {
  PoolPtr<EFI_HANDLE> Handles;
  if (EFI_ERROR(Handles.Allocate(HandleBufferBytes))) return EFI_ABORTED;
  EFI_GUID FileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  UINTN Size = HandleBufferBytes;
  if (EFI_ERROR(gBS->LocateHandle(ByProtocol, &FileSystemGuid, nullptr, &Size, Handles.get()))) return EFI_ABORTED;
  const UINT64 Found = Size / sizeof(EFI_HANDLE);
  Volumes.SaveVolumeHandles = AllocateZeroedArray<EFI_HANDLE>(Found);
  Volumes.SaveVolumeLabels = AllocateZeroedArray<CHAR16*>(Found);
  Volumes.SaveVolumeSizes = AllocateZeroedArray<UINT64>(Found);
  if (Volumes.SaveVolumeHandles == nullptr || Volumes.SaveVolumeLabels == nullptr ||
      Volumes.SaveVolumeSizes == nullptr)
    return EFI_ABORTED;
  for (UINT64 I = 0; I < Found; ++I) {
    Volumes.SaveVolumeHandles[I] = Handles.get()[I];
    Volumes.SaveVolumeLabels[I] = AllocateZeroedArray<CHAR16>(VolumeLabelBytes / sizeof(CHAR16));
    if (Volumes.SaveVolumeLabels[I] == nullptr) return EFI_ABORTED;
    Volumes.SaveVolumeCount = I + 1;
    ReadVolume(Volumes, I);
  }
  return EFI_SUCCESS;
}

SaveVolumes::~SaveVolumes() {
  FreeTextArray(SaveVolumeLabels, SaveVolumeCount);
  VOID* const Arrays[] = {SaveVolumeHandles, SaveVolumeSizes};
  for (VOID* Array : Arrays)
    if (Array != nullptr) gBS->FreePool(Array);
}

VOID DrawSaveVolumes(const SaveVolumes& Volumes, UINT64 Highlight, UINTN Left, UINTN Top, UINTN Right) {
  const UINT64 Count = Volumes.SaveVolumeCount;
  for (UINT64 I = 0; I < Count; ++I) {
    SetColour(I == Highlight ? ui_colour::Highlight : ui_colour::Screen);
    const CHAR16* Label = Volumes.SaveVolumeLabels[I] != nullptr ? Volumes.SaveVolumeLabels[I] : u"";
    CHAR16 Line[PrintBufferChars];
    SPrint(Line, sizeof(Line), u"%s %s (%d GB)", UiText(ui_text::Device), Label,
           static_cast<INT32>(Volumes.SaveVolumeSizes[I] / (1ull << 30) + 1));
    // A volume's label is the file system's: cut at the box.
    PrintWithin(Line, Top + I, Left, Right);
  }
  MoveCursor(Left, Top + Count + 1);
  SetColour(Highlight == Count ? ui_colour::Highlight : ui_colour::Screen);
  Print(u"%s", UiText(ui_text::Cancel));
}

}  // namespace tarvik
