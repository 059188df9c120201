#include "core/protocol_registry.h"

#include "core/globals.h"

namespace tarvik {
namespace {

constinit ServiceRecordHeader** InstalledRecords = nullptr;
constinit UINT32 InstalledCount = 0;

EFI_STATUS FindLoadedImage(EFI_HANDLE Handle, EFI_LOADED_IMAGE_PROTOCOL** LoadedImage) {
  EFI_GUID Guid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  return gBS->HandleProtocol(Handle, &Guid, reinterpret_cast<VOID**>(LoadedImage));
}

}  // namespace

UINT32 InstalledRecordCount() { return InstalledCount; }

EFIAPI EFI_STATUS InstallProtocol(DiagCommonProtocol* Self, EFI_HANDLE* HandlePtr, EFI_GUID* Guid,
                                  VOID** RecordPtr, EFI_IMAGE_UNLOAD UnloadFn) {
  if (Self == nullptr || HandlePtr == nullptr || Guid == nullptr || RecordPtr == nullptr || UnloadFn == nullptr)
    return EFI_ABORTED;
  auto* Record = static_cast<ServiceRecordHeader*>(*RecordPtr);
  // A record that is missing or names another handle cannot be removed again
  // by the handle it claims; refuse it before anything is installed.
  if (Record == nullptr || Record->ImageHandle != *HandlePtr) return EFI_INVALID_PARAMETER;

  if (InstalledRecords == nullptr) {
    VOID* Table = nullptr;
    EFI_STATUS Status =
        gBS->AllocatePool(EfiBootServicesData, InstalledRecordCapacity * sizeof(ServiceRecordHeader*), &Table);
    if (EFI_ERROR(Status)) return Status;
    InstalledRecords = static_cast<ServiceRecordHeader**>(Table);
    InstalledCount = 0;
  }

  // A record installed on a foreign image is cleaned up by unloading that
  // image, so its clean-up operation goes to the image.
  EFI_LOADED_IMAGE_PROTOCOL* ForeignImage = nullptr;
  if (*HandlePtr != Self->ImageHandle) {
    EFI_STATUS Status = FindLoadedImage(*HandlePtr, &ForeignImage);
    if (EFI_ERROR(Status)) return Status;
    ForeignImage->Unload = UnloadFn;
    Record->Unload = nullptr;
  } else {
    Record->Unload = UnloadFn;
  }

  EFI_STATUS Status = gBS->InstallMultipleProtocolInterfaces(HandlePtr, Guid, Record, nullptr);
  if (EFI_ERROR(Status)) {
    if (ForeignImage != nullptr)
      ForeignImage->Unload = nullptr;
    else
      Record->Unload = nullptr;
    return Status;
  }

  if (InstalledCount < InstalledRecordCapacity) InstalledRecords[InstalledCount++] = Record;
  return EFI_SUCCESS;
}

EFI_STATUS WithdrawProtocol(ServiceRecordHeader* Record) {
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  // Newest first: a withdrawn record is normally the last one installed.
  for (UINT32 I = InstalledCount; I-- > 0;) {
    if (InstalledRecords[I] != Record) continue;
    for (UINT32 Later = I + 1; Later < InstalledCount; ++Later) InstalledRecords[Later - 1] = InstalledRecords[Later];
    InstalledRecords[--InstalledCount] = nullptr;
    break;
  }
  EFI_GUID Guid = Record->Guid;
  const EFI_STATUS Status = gBS->UninstallMultipleProtocolInterfaces(Record->ImageHandle, &Guid, Record, nullptr);
  Record->Unload = nullptr;
  return Status;
}

EFIAPI EFI_STATUS UninstallAllProtocols(DiagCommonProtocol* Self) {
  if (Self == nullptr) return EFI_ABORTED;
  while (InstalledCount != 0) {
    --InstalledCount;
    ServiceRecordHeader* Record = InstalledRecords[InstalledCount];
    InstalledRecords[InstalledCount] = nullptr;
    if (Record == nullptr) break;
    EFI_HANDLE Handle = Record->ImageHandle;
    EFI_GUID Guid = Record->Guid;
    gBS->UninstallMultipleProtocolInterfaces(Handle, &Guid, Record, nullptr);
    if (Record->Unload != nullptr)
      Record->Unload(Handle);
    else
      gBS->UnloadImage(Handle);
  }
  if (InstalledRecords != nullptr) gBS->FreePool(InstalledRecords);
  InstalledRecords = nullptr;
  InstalledCount = 0;
  return EFI_SUCCESS;
}

}  // namespace tarvik
