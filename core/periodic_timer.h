// Owner of a periodic timer event: either one whose notification runs on
// every tick (the screens' key polls, spinners and clock) or one a flow
// waits on between polls of a device (WaitForEvent). The event is closed
// when the owner goes, so a notification never runs after the state it
// works on is gone.
#pragma once

#include "core/globals.h"

namespace tarvik {

class PeriodicTimer {
 public:
  PeriodicTimer() = default;
  ~PeriodicTimer() { Close(); }
  PeriodicTimer(const PeriodicTimer&) = delete;
  PeriodicTimer& operator=(const PeriodicTimer&) = delete;

  // Notify runs at Tpl every Period (100 ns units). Without the event (the
  // firmware refused it) nothing runs and the owner holds none.
  EFI_STATUS StartNotifying(EFI_TPL Tpl, EFI_EVENT_NOTIFY Notify, VOID* Context, UINT64 Period) {
    return Start(EVT_TIMER | EVT_NOTIFY_SIGNAL, Tpl, Notify, Context, Period);
  }

  // A timer without a notification, for WaitTick.
  EFI_STATUS StartWaitable(UINT64 Period) { return Start(EVT_TIMER, TPL_NOTIFY, nullptr, nullptr, Period); }

  // Waits for the next tick of a waitable timer; EFI_NOT_STARTED without
  // one, rather than handing the firmware a null event.
  EFI_STATUS WaitTick() {
    if (Event_ == nullptr) return EFI_NOT_STARTED;
    UINTN Index = 0;
    return gBS->WaitForEvent(1, &Event_, &Index);
  }

  VOID Close() {
    if (Event_ != nullptr) gBS->CloseEvent(Event_);
    Event_ = nullptr;
  }

 private:
  // Closes any timer held before.
  EFI_STATUS Start(UINT32 Type, EFI_TPL Tpl, EFI_EVENT_NOTIFY Notify, VOID* Context, UINT64 Period) {
    Close();
    const EFI_STATUS Status = gBS->CreateEvent(Type, Tpl, Notify, Context, &Event_);
    if (EFI_ERROR(Status)) {
      Event_ = nullptr;
      return Status;
    }
    return gBS->SetTimer(Event_, TimerPeriodic, Period);
  }

  EFI_EVENT Event_ = nullptr;
};

}  // namespace tarvik
