// Start-up: installing the services a plan names in its order, the
// hand-over to the user interface, and teardown ending in a cold reset. The
// application's own plan is in app/.
#pragma once

#include "efi/efi.h"

namespace tarvik {

typedef EFI_STATUS (*ServiceInstaller)(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// A core service: its failure stops the application with Message.
struct CoreServiceStep {
  ServiceInstaller Install;
  const CHAR16* FailureMessage;
};

struct StartupPlan {
  const CoreServiceStep* CoreServices;  // the shared services first
  UINTN CoreServiceCount;
  const ServiceInstaller* TestModules;  // failures are not fatal
  UINTN TestModuleCount;
  ServiceInstaller RunUserInterface;
};

// Runs the whole life of the application. Returns only when a core service
// fails to install (with its status) or when the reset returns (with 0).
EFI_STATUS RunApplication(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable, const StartupPlan& Plan);

}  // namespace tarvik
