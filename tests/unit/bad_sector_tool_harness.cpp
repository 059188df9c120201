#include "tests/unit/bad_sector_tool_harness.h"

#include <gtest/gtest.h>

#include "app/application_plan.h"
#include "badsector/bad_sectors_tool.h"
#include "core/diag_common.h"
#include "core/locate.h"
#include "core/startup.h"
#include "storage/drive_discovery.h"
#include "text/language_protocol.h"

namespace testing_support {
namespace {

ToolScreen* current_screen = nullptr;

EFIAPI EFI_STATUS screen_progress(VOID*, UINT64 percent, UINT64) {
  current_screen->progress.push_back(percent);
  if (current_screen->on_progress) current_screen->on_progress(percent);
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS screen_message(VOID*, const CHAR16* text, UINT8 kind, UINT64) {
  if (kind == 3) {
    current_screen->lines.push_back(utf8(text));
    return EFI_SUCCESS;
  }
  current_screen->boxes.emplace_back(kind, utf8(text));
  if (current_screen->answers.empty()) return EFI_SUCCESS;
  const EFI_STATUS answer = current_screen->answers.front();
  current_screen->answers.pop_front();
  return answer;
}

}  // namespace

bool ToolBench::start(bool publish) {
  pools_before_ = machine_->memory().outstanding_pools();
  pages_before_ = machine_->memory().outstanding_pages();
  started_ = true;
  for (UINTN i = 0; i < tarvik::ApplicationPlan.CoreServiceCount; ++i)
    if (tarvik::ApplicationPlan.CoreServices[i].Install(machine_->image_handle(), machine_->system_table()) !=
        EFI_SUCCESS) {
      ADD_FAILURE() << "core service " << i;
      return false;
    }
  auto* language = tarvik::LocateService<tarvik::LanguageProtocol>(tarvik::LanguageProtocolGuid);
  if (language == nullptr || language->GetStringTable(u"Storage", &string_count, &strings) != EFI_SUCCESS) {
    ADD_FAILURE() << "no Storage texts";
    return false;
  }
  if (tarvik::DiscoverStorageDevices(&drives) != EFI_SUCCESS || tarvik::IdentifyAllDevices(&drives) != EFI_SUCCESS ||
      tarvik::BuildToolDeviceList(&drives) != EFI_SUCCESS) {
    ADD_FAILURE() << "drives";
    return false;
  }
  if (!publish) return true;
  const EFI_STATUS published =
      tarvik::PublishBadSectorsTool(machine_->image_handle(), drives, strings, string_count);
  EXPECT_EQ(published, EFI_SUCCESS);
  tool = tarvik::LocateService<tarvik::BadSectorsToolProtocol>(tarvik::BadSectorsToolProtocolGuid);
  return published == EFI_SUCCESS && tool != nullptr;
}

ToolBench::~ToolBench() {
  if (!started_) return;
  // Newest first: the tool goes before the drives it points at.
  if (tarvik::gDiagCommon != nullptr) tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
  tarvik::ReleaseStorageDevices(&drives);
  if (strings != nullptr) {
    for (UINT64 i = 0; i < string_count; ++i)
      if (strings[i] != nullptr) tarvik::gBS->FreePool(strings[i]);
    tarvik::gBS->FreePool(strings);
  }
  tarvik::UninstallDiagCommon();
  EXPECT_EQ(machine_->memory().outstanding_pools(), pools_before_);
  EXPECT_EQ(machine_->memory().outstanding_pages(), pages_before_);
}

UINT64 ToolBench::run(UINT64 operation, ToolScreen& screen, UINT64 device, bool progress) {
  current_screen = &screen;
  const UINT64 result =
      tool->RunTool(nullptr, operation, device, progress ? screen_progress : nullptr, screen_message);
  current_screen = nullptr;
  return result;
}

}  // namespace testing_support
