#include "core/connect_controllers.h"

#include "core/globals.h"
#include "core/pool.h"

namespace tarvik {

VOID ConnectAllControllers() {
  if (gBS->ConnectController == nullptr) return;
  PoolPtr<EFI_HANDLE> Handles;
  EFI_HANDLE* Found = nullptr;
  UINTN Count = 0;
  const EFI_STATUS Status = gBS->LocateHandleBuffer(AllHandles, nullptr, nullptr, &Count, &Found);
  Handles.reset(Found);
  if (EFI_ERROR(Status)) return;
  for (UINTN I = 0; I < Count; ++I) gBS->ConnectController(Handles.get()[I], nullptr, nullptr, TRUE);
}

namespace {

VOID LocateHandles(EFI_GUID& Guid, PoolPtr<EFI_HANDLE>& Handles, UINTN& Count) {
  EFI_HANDLE* Found = nullptr;
  Count = 0;
  const EFI_STATUS Status = gBS->LocateHandleBuffer(ByProtocol, &Guid, nullptr, &Count, &Found);
  Handles.reset(Found);
  if (EFI_ERROR(Status)) Count = 0;
}

}  // namespace

VOID LocateHandlesConnectingOnce(EFI_GUID Guid, PoolPtr<EFI_HANDLE>& Handles, UINTN& Count) {
  LocateHandles(Guid, Handles, Count);
  if (Count > 0) return;
  ConnectAllControllers();
  LocateHandles(Guid, Handles, Count);
}

}  // namespace tarvik
