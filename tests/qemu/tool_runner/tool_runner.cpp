// A test image built from the application's services: instead of the user
// interface it runs one operation of the bad-sector tool, write
// uncorrectable, which the menus never offer. It answers every question of
// the tool with yes and prints each line the tool reports, each progress
// report and the result, then ends in the application's teardown and cold
// reset. It works only on the drive whose name is ScratchDriveName, so that
// it can never reach the boot disk or a drive that holds data.
#include "app/application_plan.h"
#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/wide_string.h"

namespace toolrunner {
namespace {

using tarvik::Print;

constexpr const CHAR16* ScratchDriveName = u"SCRATCH7200";
constexpr UINT64 WriteUncorrectable = 2;
constexpr UINT64 NoDrive = ~0ull;

EFIAPI EFI_STATUS PrintProgress(VOID*, UINT64 Percent, UINT64) {
  Print(u"TOOL PROGRESS %ld\n", Percent);
  return EFI_SUCCESS;
}

// Lines (kind 3) are printed; warnings, confirmations and questions are
// printed with the answer given: yes.
EFIAPI EFI_STATUS AnswerYes(VOID*, const CHAR16* Text, UINT8 Kind, UINT64) {
  const CHAR16* Shown = Text != nullptr ? Text : u"";
  if (Kind == 3) {
    Print(u"TOOL LINE: %s\n", Shown);
  } else {
    Print(u"TOOL ASKS (kind %d): %s -> yes\n", static_cast<UINT32>(Kind), Shown);
  }
  return EFI_SUCCESS;
}

// The index of the one drive named ScratchDriveName; NoDrive when there is
// none or more than one.
UINT64 FindScratchDrive(tarvik::BadSectorsToolProtocol& Tool) {
  UINT64 Found = NoDrive;
  const UINT64 Count = Tool.GetDeviceCount(&Tool);
  for (UINT64 I = 0; I < Count; ++I) {
    CHAR16* Name = nullptr;
    if (EFI_ERROR(Tool.GetDeviceName(nullptr, I, &Name))) continue;
    const tarvik::PoolPtr<CHAR16> Owned(Name);
    Print(u"TOOL RUNNER: drive %ld is %s\n", I, Name);
    if (tarvik::StrCmp(Name, ScratchDriveName) != 0) continue;
    if (Found != NoDrive) return NoDrive;
    Found = I;
  }
  return Found;
}

EFI_STATUS RunWriteUncorrectable(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  auto* Tool = tarvik::LocateService<tarvik::BadSectorsToolProtocol>(tarvik::BadSectorsToolProtocolGuid);
  if (Tool == nullptr) {
    Print(u"TOOL RUNNER: the bad-sector tool is not installed\n");
    return EFI_NOT_FOUND;
  }
  const UINT64 Drive = FindScratchDrive(*Tool);
  if (Drive == NoDrive) {
    Print(u"TOOL RUNNER: no single drive named %s\n", ScratchDriveName);
    return EFI_NOT_FOUND;
  }
  Print(u"TOOL RUNNER: write uncorrectable on drive %ld\n", Drive);
  const UINT64 Result = Tool->RunTool(nullptr, WriteUncorrectable, Drive, PrintProgress, AnswerYes);
  Print(u"TOOL RESULT %ld\n", Result);
  return EFI_SUCCESS;
}

}  // namespace
}  // namespace toolrunner

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  const tarvik::StartupPlan Plan = {
      .CoreServices = tarvik::ApplicationPlan.CoreServices,
      .CoreServiceCount = tarvik::ApplicationPlan.CoreServiceCount,
      .TestModules = tarvik::ApplicationPlan.TestModules,
      .TestModuleCount = tarvik::ApplicationPlan.TestModuleCount,
      .RunUserInterface = toolrunner::RunWriteUncorrectable,
  };
  return tarvik::RunApplication(ImageHandle, SystemTable, Plan);
}
