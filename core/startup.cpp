#include "core/startup.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "log/log_protocol.h"
#include "memtest/memory_test_protocol.h"
#include "registry/test_collection_protocol.h"
#include "resultcode/error_code_protocol.h"
#include "sysinfo/smbios_protocol.h"
#include "text/language_protocol.h"
#include "ui/run_diagnostics_ui.h"

namespace tarvik {
namespace {

constexpr CoreServiceStep ApplicationCoreServices[] = {
    {InstallDiagCommon, u"Failed to install common protocols...\n"},
    {InstallErrorCode, u"Failed to install errorcode protocol...\n"},
    {InstallSmBios, u"Failed to install SmBios protocols...\n"},
    {InstallLanguage, u"Failed to install language protocols...\n"},
    {InstallTestCollection, u"Failed to install TestCollection protocols...\n"},
    {InstallLog, u"Failed to install Log protocols...\n"},
};

// Registered in this order: the memory test first.
constexpr ServiceInstaller ApplicationTestModules[] = {InstallMemoryTest};

}  // namespace

constinit const StartupPlan ApplicationPlan = {
    .CoreServices = ApplicationCoreServices,
    .CoreServiceCount = sizeof(ApplicationCoreServices) / sizeof(ApplicationCoreServices[0]),
    .TestModules = ApplicationTestModules,
    .TestModuleCount = sizeof(ApplicationTestModules) / sizeof(ApplicationTestModules[0]),
    .RunUserInterface = RunDiagnosticsUi,
};

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
