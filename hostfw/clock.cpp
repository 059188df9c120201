#include "hostfw/clock.h"

#include <ctime>

namespace hostfw {
namespace {

constexpr uint64_t kNsPerSecond = 1000000000ull;

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t days_from_civil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

}  // namespace

EFI_TIME efi_time_from_tm(const std::tm& tm, uint32_t nanosecond) {
  EFI_TIME t{};
  t.Year = static_cast<UINT16>(tm.tm_year + 1900);
  t.Month = static_cast<UINT8>(tm.tm_mon + 1);
  t.Day = static_cast<UINT8>(tm.tm_mday);
  t.Hour = static_cast<UINT8>(tm.tm_hour);
  t.Minute = static_cast<UINT8>(tm.tm_min);
  t.Second = static_cast<UINT8>(tm.tm_sec);
  t.Nanosecond = nanosecond;
  t.TimeZone = EFI_UNSPECIFIED_TIMEZONE;
  t.Daylight = 0;
  return t;
}

uint64_t host_monotonic_ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * kNsPerSecond + static_cast<uint64_t>(ts.tv_nsec);
}

Clock::Clock(bool virtual_time, const WallClockStart& start)
    : virtual_(virtual_time), start_(start), real_origin_ns_(host_monotonic_ns()) {}

uint64_t Clock::now_ns() const {
  return virtual_ ? virtual_ns_.load() : host_monotonic_ns() - real_origin_ns_;
}

void Clock::advance_to(uint64_t t_ns) {
  if (virtual_ && t_ns > virtual_ns_.load()) virtual_ns_.store(t_ns);
}

void Clock::sleep_for(uint64_t ns) {
  if (virtual_) {
    advance_to(now_ns() + ns);
    return;
  }
  timespec ts{static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
  nanosleep(&ts, nullptr);  // a timer interrupt may end it early; callers loop on the clock
}

EFI_TIME Clock::wall_time() const {
  if (!virtual_) {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    std::tm tm{};
    localtime_r(&ts.tv_sec, &tm);
    return efi_time_from_tm(tm, static_cast<uint32_t>(ts.tv_nsec));
  }
  const uint64_t now = now_ns();
  const int64_t start_seconds =
      days_from_civil(start_.year, static_cast<unsigned>(start_.month), static_cast<unsigned>(start_.day)) * 86400 +
      start_.hour * 3600 + start_.minute * 60 + start_.second;
  const time_t seconds = static_cast<time_t>(start_seconds + static_cast<int64_t>(now / kNsPerSecond));
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  return efi_time_from_tm(tm, static_cast<uint32_t>(now % kNsPerSecond));
}

}  // namespace hostfw
