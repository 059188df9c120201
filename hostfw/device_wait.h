// How a device keeps the caller of a blocking firmware service waiting: while
// it works on its media, and when it never answers. Shared by the simulated
// ATA drives and NVMe controllers.
#pragma once

#include <cstdint>

namespace hostfw {

class Machine;

// The device works for ns of machine time. The service waits at
// TPL_NOTIFY, like every service here: timers falling due meanwhile are
// signalled at their time, and their notifications run once it returns.
void wait_for_device(Machine& machine, uint64_t ns);
// The device never answers: the caller's timeout (100 ns units) passes. A
// timeout of 0 asks to wait for ever; a controller gives up after 30 seconds.
void wait_for_timeout(Machine& machine, uint64_t timeout_100ns);

}  // namespace hostfw
