#include "core/startup.h"

#include "core/diag_common.h"
#include "core/globals.h"

namespace tarvik {

EFI_STATUS RunApplication(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable, const StartupPlan& Plan) {
  gImageHandle = ImageHandle;
  gST = SystemTable;
  gBS = SystemTable->BootServices;
  gRT = SystemTable->RuntimeServices;

  // A test run lasts far longer than the firmware's default watchdog period.
  gBS->SetWatchdogTimer(0, 0, 0, nullptr);

  for (UINTN I = 0; I < Plan.CoreServiceCount; ++I) {
    EFI_STATUS Status = Plan.CoreServices[I].Install(ImageHandle, SystemTable);
    if (Status != EFI_SUCCESS) {
      Print(Plan.CoreServices[I].FailureMessage);
      return Status;
    }
  }
  for (UINTN I = 0; I < Plan.TestModuleCount; ++I) Plan.TestModules[I](ImageHandle, SystemTable);

  Plan.RunUserInterface(ImageHandle, SystemTable);

  if (gDiagCommon != nullptr) gDiagCommon->UninstallAllProtocols(gDiagCommon);
  UninstallDiagCommon();
  gRT->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
  return EFI_SUCCESS;
}

}  // namespace tarvik
