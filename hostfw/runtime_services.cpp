// EFIAPI entry points of the runtime services the application uses.
#include "hostfw/machine.h"
#include "hostfw/services.h"

namespace hostfw {
namespace {

EFIAPI EFI_STATUS GetTime(EFI_TIME* time, EFI_TIME_CAPABILITIES* capabilities) {
  if (time == nullptr) return EFI_INVALID_PARAMETER;
  *time = Machine::current().clock().wall_time();
  if (capabilities != nullptr) {
    capabilities->Resolution = 1;
    capabilities->Accuracy = 50000000;  // 50 ppm, in parts per 10^12
    capabilities->SetsToZero = FALSE;
  }
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS SetTime(EFI_TIME*) { return EFI_UNSUPPORTED; }

EFIAPI VOID ResetSystem(EFI_RESET_TYPE type, EFI_STATUS status, UINTN, VOID*) {
  RunResult result;
  result.end = RunResult::End::Reset;
  result.reset_type = type;
  result.status = status;
  Machine::current().end_run(result);
}

}  // namespace

void fill_runtime_services(EFI_RUNTIME_SERVICES& t) {
  t = EFI_RUNTIME_SERVICES{};
  t.Hdr.Signature = EFI_RUNTIME_SERVICES_SIGNATURE;
  t.Hdr.Revision = EFI_2_70_SYSTEM_TABLE_REVISION;
  t.Hdr.HeaderSize = sizeof(EFI_RUNTIME_SERVICES);
  t.GetTime = GetTime;
  t.SetTime = SetTime;
  t.ResetSystem = ResetSystem;
}

}  // namespace hostfw
