// Move-only owner of a periodic timer event: closes it when it goes, so its
// notification never runs after the state it works on is gone.
#pragma once

#include "core/globals.h"

namespace tarvik {

class TimerEvent {
 public:
  TimerEvent() = default;
  ~TimerEvent() { Close(); }
  TimerEvent(const TimerEvent&) = delete;
  TimerEvent& operator=(const TimerEvent&) = delete;
  TimerEvent(TimerEvent&& Other) : Event_(Other.Event_) { Other.Event_ = nullptr; }
  TimerEvent& operator=(TimerEvent&& Other) {
    if (this != &Other) {
      Close();
      Event_ = Other.Event_;
      Other.Event_ = nullptr;
    }
    return *this;
  }

  // Creates a timer whose Notify runs at Tpl every Period (100 ns units),
  // closing any timer held before. Without the event (the firmware refused
  // it) nothing runs and the owner holds none.
  VOID StartPeriodic(EFI_TPL Tpl, EFI_EVENT_NOTIFY Notify, VOID* Context, UINT64 Period) {
    Close();
    if (!EFI_ERROR(gBS->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, Tpl, Notify, Context, &Event_)))
      gBS->SetTimer(Event_, TimerPeriodic, Period);
    else
      Event_ = nullptr;
  }

  VOID Close() {
    if (Event_ != nullptr) gBS->CloseEvent(Event_);
    Event_ = nullptr;
  }

  explicit operator bool() const { return Event_ != nullptr; }

 private:
  EFI_EVENT Event_ = nullptr;
};

}  // namespace tarvik
