#include "hostfw/interrupts.h"

#include <sys/time.h>

#include <cerrno>

#include "hostfw/events.h"

namespace hostfw {
namespace {

Events* g_events = nullptr;

void on_tick(int) {
  const int saved_errno = errno;
  if (g_events != nullptr) g_events->interrupt();
  errno = saved_errno;
}

void set_interval(long microseconds) {
  itimerval interval{};
  interval.it_interval.tv_usec = microseconds;
  interval.it_value.tv_usec = microseconds;
  setitimer(ITIMER_REAL, &interval, nullptr);
}

}  // namespace

Interrupts::Interrupts(Events& events) {
  g_events = &events;
  struct sigaction action {};
  action.sa_handler = on_tick;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, &previous_);
  set_interval(1000);
}

Interrupts::~Interrupts() {
  set_interval(0);
  sigaction(SIGALRM, &previous_, nullptr);
  g_events = nullptr;
}

}  // namespace hostfw
