// Everything the application uses of UEFI, in one include.
#pragma once

#include "efi/base.h"
#include "efi/boot_services.h"
#include "efi/runtime_services.h"
#include "efi/system_table.h"
#include "efi/protocol/ata_pass_thru.h"
#include "efi/protocol/device_path.h"
#include "efi/protocol/loaded_image.h"
#include "efi/protocol/mp_services.h"
#include "efi/protocol/nvm_express_pass_thru.h"
#include "efi/protocol/simple_file_system.h"
#include "efi/protocol/simple_text_input.h"
#include "efi/protocol/simple_text_output.h"
