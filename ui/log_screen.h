// The log screen: the log of the last run built by the log service, shown
// through the log view, scrolled, and saved on F2 to a volume the technician
// picks from a dialog.
#pragma once

#include "efi/efi.h"

namespace tarvik {

struct TestRunRecord;

// The log of the run in Run, made by the module at TestIndex.
EFI_STATUS ShowTestLogScreen(UINT64 TestIndex, const TestRunRecord& Run);
// The log of a recovery run.
EFI_STATUS ShowRecoveryLogScreen(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* Start,
                                 const EFI_TIME* End);

// The volumes of the save dialog, built each time it opens; the destructor
// releases them when it closes.
inline constexpr UINT64 MaxSaveVolumes = 100;
inline constexpr UINTN VolumeLabelBytes = 200;
struct SaveVolumes {
  SaveVolumes() = default;
  ~SaveVolumes();
  SaveVolumes(const SaveVolumes&) = delete;
  SaveVolumes& operator=(const SaveVolumes&) = delete;

  UINT64 SaveVolumeCount = 0;
  EFI_HANDLE* SaveVolumeHandles = nullptr;
  CHAR16** SaveVolumeLabels = nullptr;  // VolumeLabelBytes each
  UINT64* SaveVolumeSizes = nullptr;    // bytes
};

// Fills an empty Volumes with every file-system volume (label and size where
// they can be read); EFI_ABORTED when they cannot all be listed.
EFI_STATUS FindSaveVolumes(SaveVolumes& Volumes);
// The dialog's list from (Left, Top), each line cut at Right, "Cancel" a
// blank row below it.
VOID DrawSaveVolumes(const SaveVolumes& Volumes, UINT64 Highlight, UINTN Left, UINTN Top, UINTN Right);

}  // namespace tarvik
