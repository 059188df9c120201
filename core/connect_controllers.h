// Firmware that connects only its boot devices publishes no pass-through
// for the other controllers until they are connected.
#pragma once

#include "core/pool.h"
#include "efi/efi.h"

namespace tarvik {

// ConnectController, recursively, on every handle there is.
VOID ConnectAllControllers();

// Every handle that carries protocol Guid into Handles and Count; when there
// is none, every controller is connected once and the handles looked up again.
VOID LocateHandlesConnectingOnce(EFI_GUID Guid, PoolPtr<EFI_HANDLE>& Handles, UINTN& Count);

}  // namespace tarvik
