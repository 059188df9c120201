// The boot- and runtime-services tables of the host firmware.
#pragma once

#include "efi/efi.h"

namespace hostfw {

void fill_boot_services(EFI_BOOT_SERVICES& table);
void fill_runtime_services(EFI_RUNTIME_SERVICES& table);

}  // namespace hostfw
