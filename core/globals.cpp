#include "core/globals.h"

namespace tarvik {

constinit EFI_SYSTEM_TABLE* gST = nullptr;
constinit EFI_BOOT_SERVICES* gBS = nullptr;
constinit EFI_RUNTIME_SERVICES* gRT = nullptr;
constinit EFI_HANDLE gImageHandle = nullptr;
constinit DiagCommonProtocol* gDiagCommon = nullptr;

}  // namespace tarvik
