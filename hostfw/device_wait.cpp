#include "hostfw/device_wait.h"

#include "hostfw/machine.h"

namespace hostfw {
namespace {

constexpr uint64_t kEndlessTimeoutNs = 30ull * 1000 * 1000 * 1000;

}  // namespace

void wait_for_device(Machine& machine, uint64_t ns) {
  if (ns == 0) return;
  if (machine.clock().is_virtual())
    machine.events().let_virtual_time_pass(ns);
  else
    machine.events().stall((ns + 999) / 1000);
}

void wait_for_timeout(Machine& machine, uint64_t timeout_100ns) {
  const uint64_t timeout_ns = timeout_100ns == 0 ? kEndlessTimeoutNs : timeout_100ns * 100;
  machine.events().stall((timeout_ns + 999) / 1000);
}

}  // namespace hostfw
