// Finding another service's record by its GUID.
#pragma once

#include "core/globals.h"

namespace tarvik {

// The record installed under Guid, or null when there is none.
template <typename Record>
Record* LocateService(EFI_GUID Guid) {
  VOID* Found = nullptr;
  if (EFI_ERROR(gBS->LocateProtocol(&Guid, nullptr, &Found))) return nullptr;
  return static_cast<Record*>(Found);
}

}  // namespace tarvik
