// Installing service records so that they can all be removed again, newest
// first, when the application ends.
#pragma once

#include "core/diag_common.h"
#include "core/service_record.h"

namespace tarvik {

// Every record installed through InstallProtocol is remembered here, up to
// this many; later ones are installed but not remembered.
inline constexpr UINT32 InstalledRecordCapacity = 100;

EFIAPI EFI_STATUS InstallProtocol(DiagCommonProtocol* Self, EFI_HANDLE* HandlePtr, EFI_GUID* Guid,
                                  VOID** RecordPtr, EFI_IMAGE_UNLOAD UnloadFn);
EFIAPI EFI_STATUS UninstallAllProtocols(DiagCommonProtocol* Self);

// Takes a record installed through InstallProtocol on the application's own
// image off its handle and out of the teardown list, without calling its
// clean-up: for an installer whose later step failed and that releases the
// record itself. Returns the uninstall's status.
EFI_STATUS WithdrawProtocol(ServiceRecordHeader* Record);

// Number of records remembered for removal.
UINT32 InstalledRecordCount();

}  // namespace tarvik
