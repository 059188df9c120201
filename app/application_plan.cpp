#include "app/application_plan.h"

#include "badsector/bad_sectors_tool.h"
#include "core/diag_common.h"
#include "core/startup_texts.h"
#include "log/log_protocol.h"
#include "memtest/memory_test_protocol.h"
#include "nvme/nvme_test_protocol.h"
#include "registry/module_registry_protocol.h"
#include "resultcode/error_code_protocol.h"
#include "storage/storage_test_protocol.h"
#include "sysinfo/smbios_protocol.h"
#include "text/language_protocol.h"
#include "ui/run_diagnostics_ui.h"

namespace tarvik {
namespace {

// The storage module publishes the bad-sector tool over its rotating drives.
EFI_STATUS InstallStorageTestAndTool(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  return InstallStorageTest(ImageHandle, SystemTable, PublishBadSectorsTool);
}

// In this order: each service finds the ones before it by GUID.
constexpr CoreServiceStep ApplicationCoreServices[] = {
    {InstallDiagCommon, startup_text::CommonFailed},
    {InstallErrorCode, startup_text::ErrorCodeFailed},
    {InstallSmBios, startup_text::SmBiosFailed},
    {InstallLanguage, startup_text::LanguageFailed},
    {InstallTestCollection, startup_text::TestCollectionFailed},
    {InstallLog, startup_text::LogFailed},
};

// Registered in this order, which is the order the main screen lists them in.
constexpr ServiceInstaller ApplicationTestModules[] = {
    InstallMemoryTest,
    InstallStorageTestAndTool,
    InstallNvmeTest,
};

}  // namespace

constinit const StartupPlan ApplicationPlan = {
    .CoreServices = ApplicationCoreServices,
    .CoreServiceCount = sizeof(ApplicationCoreServices) / sizeof(ApplicationCoreServices[0]),
    .TestModules = ApplicationTestModules,
    .TestModuleCount = sizeof(ApplicationTestModules) / sizeof(ApplicationTestModules[0]),
    .RunUserInterface = RunDiagnosticsUi,
};

}  // namespace tarvik
