// The firmware's entry into the application.
#include "app/application_plan.h"

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  return tarvik::RunApplication(ImageHandle, SystemTable, tarvik::ApplicationPlan);
}
