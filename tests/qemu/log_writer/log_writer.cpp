// A test image built from the application's services: instead of the user
// interface it builds the log of a fixed memory run, with the result code
// of this machine's serial number, saves it on the volume it was started
// from, and ends in the application's teardown and cold reset.
#include "app/application_plan.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "log/log_protocol.h"
#include "registry/module_registry_protocol.h"
#include "resultcode/error_code_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "tests/qemu/log_writer/fixed_run_module.h"

namespace logwriter {
namespace {

using tarvik::PoolPtr;

constexpr EFI_TIME Moment(UINT8 Hour, UINT8 Minute, UINT8 Second) {
  return {.Year = 2024, .Month = 3, .Day = 15, .Hour = Hour, .Minute = Minute, .Second = Second};
}

EFI_STATUS WriteFixedRunLog(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE*) {
  auto* Log = tarvik::LocateService<tarvik::LogProtocol>(tarvik::LogProtocolGuid);
  auto* Codes = tarvik::LocateService<tarvik::ErrorCodeProtocol>(tarvik::ErrorCodeProtocolGuid);
  auto* Smbios = tarvik::LocateService<tarvik::SmBiosProtocol>(tarvik::SmBiosProtocolGuid);
  if (Log == nullptr || Codes == nullptr || Smbios == nullptr) {
    tarvik::Print(u"LOG WRITER: a core service is missing\n");
    return EFI_NOT_FOUND;
  }

  const EFI_TIME Times[] = {Moment(10, 15, 0), Moment(10, 15, 1), Moment(10, 16, 16)};
  EFI_TIME Durations[1] = {{.Minute = 1, .Second = 15}};

  // The machine's serial number, as the run screen reads it.
  const PoolPtr<CHAR16> Serial = tarvik::SystemSerialNumber(*Smbios);
  UINT8 Executed[tarvik::ResultCodeAlgorithmFlags] = {1};
  UINT8 Failed[tarvik::ResultCodeAlgorithmFlags] = {};
  CHAR16* Code = nullptr;
  Codes->GenerateResultCode(u"ME", Executed, Failed, Serial ? Serial.get() : u"", &Times[0], &Code);
  PoolPtr<CHAR16> OwnedCode(Code);

  UINT8 States[] = {static_cast<UINT8>(tarvik::QueueState::Passed)};
  UINT8* StateRows[] = {States};
  const UINT8 Selected[] = {1};
  CHAR16* DeviceCodes[] = {Code};
  CHAR16 Summary[] = u"MESSAGE TESTED_SIZE: 6,144 MB";
  CHAR16* SummaryLines[] = {Summary};
  UINT64 NoMessages[] = {0};
  UINT64* MessageCounts[] = {NoMessages};
  EFI_STATUS Status = Log->BuildTestLog(0, StateRows, Selected, Selected, DeviceCodes, Times, Durations, SummaryLines,
                                        1, nullptr, MessageCounts);
  if (EFI_ERROR(Status)) {
    tarvik::Print(u"LOG WRITER: building failed: %r\n", Status);
    return Status;
  }

  EFI_GUID LoadedImageGuid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  VOID* Loaded = nullptr;
  UINT64 Saved = ~0ull;
  if (!EFI_ERROR(tarvik::gBS->HandleProtocol(ImageHandle, &LoadedImageGuid, &Loaded))) {
    Saved = Log->SaveLog(static_cast<EFI_LOADED_IMAGE_PROTOCOL*>(Loaded)->DeviceHandle);
  }
  tarvik::Print(u"LOG WRITER: %ld lines, save code %ld\n", Log->GetLineCount(), Saved);
  Log->FreeLog();
  return EFI_SUCCESS;
}

constexpr tarvik::ServiceInstaller Modules[] = {InstallFixedRunModule};

}  // namespace
}  // namespace logwriter

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  const tarvik::StartupPlan Plan = {
      .CoreServices = tarvik::ApplicationPlan.CoreServices,
      .CoreServiceCount = tarvik::ApplicationPlan.CoreServiceCount,
      .TestModules = logwriter::Modules,
      .TestModuleCount = 1,
      .RunUserInterface = logwriter::WriteFixedRunLog,
  };
  return tarvik::RunApplication(ImageHandle, SystemTable, Plan);
}
