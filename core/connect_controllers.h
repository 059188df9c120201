// Firmware that connects only its boot devices publishes no pass-through
// for the other controllers until they are connected.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// ConnectController, recursively, on every handle there is.
VOID ConnectAllControllers();

}  // namespace tarvik
