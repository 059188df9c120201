// The host's interval timer standing in for the firmware's timer interrupt:
// with the real clock, SIGALRM every millisecond lets due timer
// notifications run in the middle of whatever the application is doing.
#pragma once

#include <signal.h>

namespace hostfw {

class Events;

class Interrupts {
 public:
  explicit Interrupts(Events& events);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

 private:
  struct sigaction previous_ {};
};

}  // namespace hostfw
