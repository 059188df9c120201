#include "tests/support/application_with_modules.h"

#include <gtest/gtest.h>

#include <vector>

#include "app/application_plan.h"
#include "badsector/bad_sectors_tool.h"
#include "badsector/bad_sectors_tool_protocol.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool_text.h"
#include "storage/drive_discovery.h"
#include "text/language_protocol.h"
#include "ui/run_diagnostics_ui.h"

namespace testing_support {
namespace {

const ApplicationSetup* g_setup = nullptr;
tarvik::BadSectorsToolProtocol g_tool{};
EFI_HANDLE g_tool_handle = nullptr;

// What the real tool borrows, kept as the storage module would: the drives
// and the "Storage" texts, released once the application has ended.
struct RealToolDrives {
  tarvik::StorageDrives drives{};
  CHAR16** strings = nullptr;
  UINT64 string_count = 0;
  bool held = false;
};
RealToolDrives g_real_tool;

void publish_real_tool(EFI_HANDLE image) {
  g_real_tool = RealToolDrives{};
  g_real_tool.held = true;
  auto* language = tarvik::LocateService<tarvik::LanguageProtocol>(tarvik::LanguageProtocolGuid);
  ASSERT_NE(language, nullptr);
  ASSERT_EQ(language->GetStringTable(u"Storage", &g_real_tool.string_count, &g_real_tool.strings), EFI_SUCCESS);
  ASSERT_EQ(tarvik::DiscoverStorageDevices(&g_real_tool.drives), EFI_SUCCESS);
  ASSERT_EQ(tarvik::IdentifyAllDevices(&g_real_tool.drives), EFI_SUCCESS);
  ASSERT_EQ(tarvik::BuildToolDeviceList(&g_real_tool.drives), EFI_SUCCESS);
  ASSERT_EQ(tarvik::PublishBadSectorsTool(image, g_real_tool.drives, g_real_tool.strings, g_real_tool.string_count),
            EFI_SUCCESS);
  if (g_setup->tool_published != nullptr)
    g_setup->tool_published(
        tarvik::LocateService<tarvik::BadSectorsToolProtocol>(tarvik::BadSectorsToolProtocolGuid));
}

void release_real_tool() {
  if (!g_real_tool.held) return;
  tarvik::ReleaseStorageDevices(&g_real_tool.drives);
  tarvik::FreeTextArray(g_real_tool.strings, g_real_tool.string_count);
  g_real_tool = RealToolDrives{};
}

EFI_STATUS RegisterModules(EFI_HANDLE image, EFI_SYSTEM_TABLE* system_table) {
  for (FakeTestModule* module : g_setup->modules) located_test_collection()->AddTest(module->record());
  if (g_setup->bad_sectors_tool) {
    EFI_GUID guid = tarvik::BadSectorsToolProtocolGuid;
    g_tool_handle = nullptr;
    tarvik::gBS->InstallProtocolInterface(&g_tool_handle, &guid, EFI_NATIVE_INTERFACE,
                                          g_setup->tool_record != nullptr ? g_setup->tool_record : &g_tool);
  }
  if (g_setup->real_bad_sectors_tool) publish_real_tool(image);
  system_table->ConOut->SetMode(system_table->ConOut, static_cast<UINTN>(g_setup->console_mode_at_start));
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS Entry(EFI_HANDLE image, EFI_SYSTEM_TABLE* system_table) {
  static std::vector<tarvik::ServiceInstaller> installers;
  installers.clear();
  if (g_setup->real_modules)
    installers.assign(tarvik::ApplicationPlan.TestModules,
                      tarvik::ApplicationPlan.TestModules + tarvik::ApplicationPlan.TestModuleCount);
  installers.push_back(RegisterModules);
  const tarvik::StartupPlan plan = {
      .CoreServices = tarvik::ApplicationPlan.CoreServices,
      .CoreServiceCount = tarvik::ApplicationPlan.CoreServiceCount,
      .TestModules = installers.data(),
      .TestModuleCount = installers.size(),
      .RunUserInterface = tarvik::RunDiagnosticsUi,
  };
  return tarvik::RunApplication(image, system_table, plan);
}

}  // namespace

hostfw::RunResult run_application(TestMachine& machine, const ApplicationSetup& setup) {
  g_setup = &setup;
  hostfw::RunResult result = machine->run(Entry);
  release_real_tool();
  g_setup = nullptr;
  return result;
}

void run_to_reset(TestMachine& machine, const ApplicationSetup& setup) {
  const hostfw::RunResult result = run_application(machine, setup);
  ASSERT_EQ(result.end, hostfw::RunResult::End::Reset) << result.reason;
  EXPECT_EQ(result.reset_type, EfiResetCold);
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace testing_support
