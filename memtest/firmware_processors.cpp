#include "memtest/firmware_processors.h"

#include "core/globals.h"

namespace tarvik {

FirmwareProcessors::~FirmwareProcessors() {
  if (Done_ != nullptr) gBS->CloseEvent(Done_);
}

void FirmwareProcessors::Prepare() {
  EFI_GUID Guid = EFI_MP_SERVICES_PROTOCOL_GUID;
  VOID* Found = nullptr;
  if (EFI_ERROR(gBS->LocateProtocol(&Guid, nullptr, &Found)) || Found == nullptr) return;
  auto* Mp = static_cast<EFI_MP_SERVICES_PROTOCOL*>(Found);
  UINTN Total = 0, Enabled = 0;
  if (EFI_ERROR(Mp->GetNumberOfProcessors(Mp, &Total, &Enabled)) || Enabled < 2) return;
  if (EFI_ERROR(gBS->CreateEvent(0, 0, nullptr, nullptr, &Done_))) {
    Done_ = nullptr;
    return;
  }
  Mp_ = Mp;
  Count_ = Enabled;
}

bool FirmwareProcessors::Start(EFI_AP_PROCEDURE Procedure, VOID* Argument) {
  if (Mp_ == nullptr) return false;
  // No timeout: a share of a large memory takes as long as it takes; the
  // march gives up on an AP that stops making progress.
  return !EFI_ERROR(Mp_->StartupAllAPs(Mp_, Procedure, FALSE, Done_, 0, Argument, nullptr));
}

bool FirmwareProcessors::Finished() { return Done_ == nullptr || gBS->CheckEvent(Done_) == EFI_SUCCESS; }

void FirmwareProcessors::Idle() { gBS->Stall(1000); }

}  // namespace tarvik
