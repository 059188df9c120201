// The log screen: the log of the last run built by the log service, shown
// through the log view, scrolled, and saved on F2 to a volume the technician
// picks from a dialog.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// Volumes of the save dialog, built each time it opens.
inline constexpr UINT64 MaxSaveVolumes = 100;
inline constexpr UINTN VolumeLabelBytes = 200;
extern UINT64 SaveVolumeCount;
extern EFI_HANDLE* SaveVolumeHandles;
extern CHAR16** SaveVolumeLabels;
extern UINT64* SaveVolumeSizes;

// The log of the run in the run record, made by the module at TestIndex.
EFI_STATUS ShowTestLogScreen(UINT64 TestIndex);
// The log of a recovery run.
EFI_STATUS ShowRecoveryLogScreen(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* Start,
                                 const EFI_TIME* End);

// Fills the save volumes with every file-system volume (label and size
// where they can be read); EFI_ABORTED and none when they cannot be listed.
EFI_STATUS FindSaveVolumes(UINT64* Count);
VOID ReleaseSaveVolumes();
// The dialog's list from (Left, Top), "Cancel" a blank row below it.
VOID DrawSaveVolumes(UINT64 Count, UINT64 Highlight, UINTN Left, UINTN Top);

}  // namespace tarvik
