// The processors of a memory test run as the firmware's MP services offer
// them: how many are enabled, starting the APs on a procedure without
// waiting (a wait event tells when every AP has returned), and the BSP's
// pause while it waits. Without MP services, or when they fail, the BSP
// is alone.
#pragma once

#include "efi/efi.h"

namespace tarvik {

class FirmwareProcessors {
 public:
  FirmwareProcessors() = default;
  ~FirmwareProcessors();
  FirmwareProcessors(const FirmwareProcessors&) = delete;
  FirmwareProcessors& operator=(const FirmwareProcessors&) = delete;

  // Locates the MP services and creates the wait event: before the free
  // memory is claimed, since both may need pool.
  void Prepare();

  UINT64 Count() const { return Count_; }
  // StartupAllAPs, not waiting; false when the firmware refused.
  bool Start(EFI_AP_PROCEDURE Procedure, VOID* Argument);
  // The wait event of the last Start is signalled (every AP returned).
  bool Finished();
  // Lets a millisecond pass while the APs work.
  void Idle();

 private:
  EFI_MP_SERVICES_PROTOCOL* Mp_ = nullptr;
  EFI_EVENT Done_ = nullptr;
  UINT64 Count_ = 1;
};

}  // namespace tarvik
