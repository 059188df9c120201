#include "hostfw/events.h"

#include <algorithm>

#include "hostfw/clock.h"

namespace hostfw {
namespace {

constexpr uint64_t kMinimumPeriodNs = 1000 * 1000;  // a zero period ticks every millisecond

// Holds the priority at TPL_HIGH_LEVEL without dispatching on the way out:
// used inside the event code itself, whose callers dispatch.
class HighLevel {
 public:
  explicit HighLevel(std::atomic<EFI_TPL>& tpl) : tpl_(tpl), saved_(tpl.exchange(TPL_HIGH_LEVEL)) {}
  ~HighLevel() { tpl_.store(saved_); }
  EFI_TPL saved() const { return saved_; }

 private:
  std::atomic<EFI_TPL>& tpl_;
  EFI_TPL saved_;
};

}  // namespace

Events::Events(Clock& clock) : clock_(clock) {}
Events::~Events() = default;

EFI_TPL Events::raise(EFI_TPL new_tpl) { return tpl_.exchange(new_tpl); }

void Events::restore(EFI_TPL old_tpl) {
  tpl_.store(std::max(tpl_.load(), old_tpl));
  {
    HighLevel high(tpl_);
    fire_due_timers();  // ticks held off while the priority was raised
  }
  run_pending_above(old_tpl);
  tpl_.store(old_tpl);
}

EFI_STATUS Events::create(UINT32 type, EFI_TPL notify_tpl, EFI_EVENT_NOTIFY notify, void* context,
                          EFI_EVENT* event) {
  if (event == nullptr) return EFI_INVALID_PARAMETER;
  constexpr UINT32 kKnown = EVT_TIMER | EVT_RUNTIME | EVT_NOTIFY_WAIT | EVT_NOTIFY_SIGNAL;
  if ((type & ~kKnown) != 0) return EFI_INVALID_PARAMETER;
  const UINT32 notify_kind = type & (EVT_NOTIFY_WAIT | EVT_NOTIFY_SIGNAL);
  if (notify_kind == (EVT_NOTIFY_WAIT | EVT_NOTIFY_SIGNAL)) return EFI_INVALID_PARAMETER;
  if (notify_kind != 0 && (notify == nullptr || notify_tpl <= TPL_APPLICATION || notify_tpl >= TPL_HIGH_LEVEL))
    return EFI_INVALID_PARAMETER;

  HighLevel high(tpl_);
  auto e = std::make_unique<Event>();
  e->type = type;
  e->notify_tpl = notify_tpl;
  e->notify = notify_kind != 0 ? notify : nullptr;
  e->context = context;
  *event = e.get();
  live_.insert(e.get());
  storage_.push_back(std::move(e));
  return EFI_SUCCESS;
}

EFI_STATUS Events::set_timer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 trigger_100ns) {
  HighLevel high(tpl_);
  if (!valid(event)) return EFI_INVALID_PARAMETER;
  Event* e = static_cast<Event*>(event);
  if ((e->type & EVT_TIMER) == 0 || type > TimerRelative) return EFI_INVALID_PARAMETER;
  const uint64_t now = clock_.now_ns();
  e->timer = type;
  switch (type) {
    case TimerCancel:
      break;
    case TimerPeriodic:
      e->period_ns = std::max<uint64_t>(trigger_100ns * 100, kMinimumPeriodNs);
      e->deadline_ns = now + e->period_ns;
      break;
    case TimerRelative:
      e->deadline_ns = now + trigger_100ns * 100;
      break;
  }
  return EFI_SUCCESS;
}

EFI_STATUS Events::signal(EFI_EVENT event) {
  {
    HighLevel high(tpl_);
    if (!valid(event)) return EFI_INVALID_PARAMETER;
    signal_locked(static_cast<Event*>(event));
  }
  dispatch();
  return EFI_SUCCESS;
}

EFI_STATUS Events::check(EFI_EVENT event) {
  if (check_hook_) check_hook_(event);
  Event* e = static_cast<Event*>(event);
  {
    HighLevel high(tpl_);
    if (!valid(event) || (e->type & EVT_NOTIFY_SIGNAL) != 0) return EFI_INVALID_PARAMETER;
    if (e->signaled) {
      e->signaled = false;
      return EFI_SUCCESS;
    }
    // A wait event's notification is how it finds out whether it can be signalled.
    if ((e->type & EVT_NOTIFY_WAIT) != 0 && !e->queued) {
      e->queued = true;
      pending_.push_back(e);
    }
  }
  dispatch();
  HighLevel high(tpl_);
  if (valid(event) && e->signaled) {
    e->signaled = false;
    return EFI_SUCCESS;
  }
  return EFI_NOT_READY;
}

EFI_STATUS Events::close(EFI_EVENT event) {
  HighLevel high(tpl_);
  if (!valid(event)) return EFI_INVALID_PARAMETER;
  Event* e = static_cast<Event*>(event);
  pending_.erase(std::remove(pending_.begin(), pending_.end(), e), pending_.end());
  live_.erase(e);
  storage_.erase(std::find_if(storage_.begin(), storage_.end(), [e](const auto& p) { return p.get() == e; }));
  return EFI_SUCCESS;
}

void Events::stall(uint64_t microseconds) {
  const uint64_t until = clock_.now_ns() + microseconds * 1000;
  if (clock_.is_virtual()) {
    advance_virtual_to(until);
    return;
  }
  // The interval timer keeps interrupting the sleep; its handler fires the timers.
  for (uint64_t now = clock_.now_ns(); now < until; now = clock_.now_ns()) clock_.sleep_for(until - now);
}

void Events::let_virtual_time_pass(uint64_t ns) {
  if (clock_.is_virtual()) advance_virtual_to(clock_.now_ns() + ns);
}

void Events::advance_virtual_to(uint64_t t_ns) {
  for (;;) {
    const uint64_t next = next_deadline();
    if (next > t_ns) break;
    clock_.advance_to(next);
    {
      HighLevel high(tpl_);
      fire_due_timers();
    }
    dispatch();
  }
  clock_.advance_to(t_ns);
}

void Events::fire_due_timers() {
  const uint64_t now = clock_.now_ns();
  for (const auto& owned : storage_) {
    Event* e = owned.get();
    if (e->timer == TimerCancel || e->deadline_ns > now) continue;
    signal_locked(e);
    if (e->timer == TimerPeriodic) {
      e->deadline_ns += e->period_ns;
      if (e->deadline_ns <= now) e->deadline_ns = now + e->period_ns;  // no burst after a long hold-off
    } else {
      e->timer = TimerCancel;
    }
  }
}

void Events::dispatch() {
  const EFI_TPL current = tpl_.load();
  run_pending_above(current);
  tpl_.store(current);
}

void Events::interrupt() {
  const EFI_TPL interrupted = tpl_.load();
  // At TPL_NOTIFY and above the firmware (or the application) holds its
  // lock; the ticks it missed are caught up when it restores the priority.
  if (in_interrupt_ || interrupted >= TPL_NOTIFY) return;
  in_interrupt_ = true;
  {
    HighLevel high(tpl_);
    fire_due_timers();
  }
  run_pending_above(interrupted);
  tpl_.store(interrupted);
  in_interrupt_ = false;
}

void Events::recover_after_abandoned_run() {
  in_interrupt_ = false;
  tpl_.store(TPL_APPLICATION);
}

uint64_t Events::next_deadline() const {
  uint64_t next = UINT64_MAX;
  for (const auto& e : storage_)
    if (e->timer != TimerCancel) next = std::min(next, e->deadline_ns);
  return next;
}

bool Events::any_timer_armed() const { return next_deadline() != UINT64_MAX; }

void Events::signal_locked(Event* e) {
  if (e->signaled) return;
  e->signaled = true;
  if ((e->type & EVT_NOTIFY_SIGNAL) != 0 && !e->queued) {
    e->queued = true;
    pending_.push_back(e);
  }
}

void Events::run_pending_above(EFI_TPL floor) {
  for (;;) {
    Event* next = nullptr;
    {
      HighLevel high(tpl_);
      // Highest priority first; in order of signalling within a priority.
      auto it = std::max_element(pending_.begin(), pending_.end(),
                                 [](const Event* a, const Event* b) { return a->notify_tpl < b->notify_tpl; });
      if (it == pending_.end() || (*it)->notify_tpl <= floor) return;
      // max_element returns the first of equal maxima: the earliest signalled.
      next = *it;
      pending_.erase(it);
      next->queued = false;
      if ((next->type & EVT_NOTIFY_SIGNAL) != 0) next->signaled = false;
    }
    EFI_EVENT_NOTIFY notify = next->notify;
    void* context = next->context;
    tpl_.store(next->notify_tpl);
    if (notify != nullptr) notify(next, context);
    // The notification may have closed its own event: next is not used again.
  }
}

}  // namespace hostfw
