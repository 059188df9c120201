// Events, timers and task priority levels.
//
// Notifications run only above the current task priority: pending ones run
// highest first when the priority is restored below theirs. With the real
// clock, a host interval timer interrupts the application like a firmware
// timer interrupt does, so timer notifications reach a loop that calls
// nothing; firmware services hold TPL_NOTIFY or above while they work, which
// keeps notifications out of them. With the virtual clock, timers fire only
// when the firmware lets time pass (Stall, WaitForEvent), so runs repeat
// exactly.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "efi/efi.h"

namespace hostfw {

class Clock;

struct Event {
  UINT32 type = 0;
  EFI_TPL notify_tpl = 0;
  EFI_EVENT_NOTIFY notify = nullptr;
  void* context = nullptr;
  bool signaled = false;
  bool queued = false;  // its notification waits to run
  // Timer state.
  EFI_TIMER_DELAY timer = TimerCancel;
  uint64_t period_ns = 0;
  uint64_t deadline_ns = 0;
};

class Events {
 public:
  explicit Events(Clock& clock);
  ~Events();

  // ---- Task priority -------------------------------------------------------
  EFI_TPL tpl() const { return tpl_.load(); }
  EFI_TPL raise(EFI_TPL new_tpl);
  void restore(EFI_TPL old_tpl);

  // ---- Boot services ---------------------------------------------------------
  EFI_STATUS create(UINT32 type, EFI_TPL notify_tpl, EFI_EVENT_NOTIFY notify, void* context, EFI_EVENT* event);
  EFI_STATUS set_timer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 trigger_100ns);
  EFI_STATUS signal(EFI_EVENT event);
  EFI_STATUS check(EFI_EVENT event);
  EFI_STATUS close(EFI_EVENT event);
  // idle() is called between rounds of checking while nothing is signaled.
  template <typename Idle>
  EFI_STATUS wait(UINTN count, EFI_EVENT* events, UINTN* index, Idle idle);
  // Lets microseconds pass; timers due meanwhile fire in order.
  void stall(uint64_t microseconds);
  // Lets time pass up to t_ns on the virtual clock, firing timers in order.
  void advance_virtual_to(uint64_t t_ns);
  // Under the virtual clock, lets ns pass; the real clock moves by itself.
  void let_virtual_time_pass(uint64_t ns);

  // ---- Timer processing ------------------------------------------------------
  // Signals every timer that is due and queues its notification.
  void fire_due_timers();
  // Runs queued notifications above the current priority, highest first.
  void dispatch();
  // The host interval timer's handler: fires and dispatches when the
  // interrupted code allows it.
  void interrupt();
  // Earliest armed timer deadline, or UINT64_MAX.
  uint64_t next_deadline() const;
  bool any_timer_armed() const;
  size_t open_events() const { return live_.size(); }
  // After a run was left with a long jump (a reset from inside a
  // notification): back to TPL_APPLICATION, outside any interrupt.
  void recover_after_abandoned_run();
  bool valid(EFI_EVENT event) const { return live_.count(static_cast<Event*>(event)) != 0; }
  // Runs before every check of an event: a device that signals events from
  // outside the BSP's thread (the MP services) signals them here, on it.
  void set_check_hook(std::function<void(EFI_EVENT)> hook) { check_hook_ = std::move(hook); }

 private:
  void signal_locked(Event* e);
  void run_pending_above(EFI_TPL floor);

  Clock& clock_;
  std::atomic<EFI_TPL> tpl_{TPL_APPLICATION};
  std::set<Event*> live_;
  std::vector<std::unique_ptr<Event>> storage_;
  std::deque<Event*> pending_;  // queued notifications, in order of signalling
  bool in_interrupt_ = false;
  std::function<void(EFI_EVENT)> check_hook_;
};

// Raises the task priority for a scope, as firmware services do while they
// touch shared state; never lowers it when the caller already holds more.
class TplGuard {
 public:
  TplGuard(Events& events, EFI_TPL tpl)
      : events_(events), old_(events.raise(tpl > events.tpl() ? tpl : events.tpl())) {}
  ~TplGuard() { events_.restore(old_); }
  TplGuard(const TplGuard&) = delete;
  TplGuard& operator=(const TplGuard&) = delete;

 private:
  Events& events_;
  EFI_TPL old_;
};

template <typename Idle>
EFI_STATUS Events::wait(UINTN count, EFI_EVENT* events, UINTN* index, Idle idle) {
  if (count == 0 || events == nullptr || index == nullptr) return EFI_INVALID_PARAMETER;
  if (tpl() != TPL_APPLICATION) return EFI_UNSUPPORTED;
  for (;;) {
    for (UINTN i = 0; i < count; ++i) {
      EFI_STATUS status = check(events[i]);
      if (status != EFI_NOT_READY) {
        *index = i;
        return status;
      }
    }
    idle();
  }
}

}  // namespace hostfw
