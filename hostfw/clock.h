// Machine time: the host's clocks, or a virtual clock that moves only when
// the firmware lets time pass (Stall, waiting), for repeatable runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

#include "efi/efi.h"
#include "hostfw/profile.h"

namespace hostfw {

class Clock {
 public:
  Clock(bool virtual_time, const WallClockStart& start);

  bool is_virtual() const { return virtual_; }
  // Nanoseconds since the machine started. Safe in a signal handler.
  uint64_t now_ns() const;
  // Virtual clock only: moves time forward to t (never backwards).
  void advance_to(uint64_t t_ns);
  // Real clock: sleeps up to ns (a signal may end it early). Virtual: advances.
  void sleep_for(uint64_t ns);
  // The wall clock: the host's local time, or the profile's start time plus
  // virtual time.
  EFI_TIME wall_time() const;

 private:
  bool virtual_;
  WallClockStart start_;
  uint64_t real_origin_ns_ = 0;
  std::atomic<uint64_t> virtual_ns_{0};
};

// A broken-down host time as firmware reports it (time zone unspecified).
EFI_TIME efi_time_from_tm(const std::tm& tm, uint32_t nanosecond);

// Host monotonic time in nanoseconds.
uint64_t host_monotonic_ns();

}  // namespace hostfw
