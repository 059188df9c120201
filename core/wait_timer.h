// Owner of a periodic timer that a flow waits on between polls of a device
// (WaitForEvent): an event without a notification function, closed on every
// path.
#pragma once

#include "core/globals.h"

namespace tarvik {

class WaitTimer {
 public:
  WaitTimer() = default;
  ~WaitTimer() {
    if (Event_ != nullptr) gBS->CloseEvent(Event_);
  }
  WaitTimer(const WaitTimer&) = delete;
  WaitTimer& operator=(const WaitTimer&) = delete;

  // Creates the event at TPL_NOTIFY and starts it, one tick every Period
  // (units of 100 ns).
  EFI_STATUS StartPeriodic(UINT64 Period) {
    EFI_STATUS Status = gBS->CreateEvent(EVT_TIMER, TPL_NOTIFY, nullptr, nullptr, &Event_);
    if (EFI_ERROR(Status)) {
      Event_ = nullptr;
      return Status;
    }
    return gBS->SetTimer(Event_, TimerPeriodic, Period);
  }

  // Waits for the next tick.
  EFI_STATUS WaitTick() {
    UINTN Index = 0;
    return gBS->WaitForEvent(1, &Event_, &Index);
  }

 private:
  EFI_EVENT Event_ = nullptr;
};

}  // namespace tarvik
