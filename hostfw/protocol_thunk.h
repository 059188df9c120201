// How the application's calls reach the host firmware's devices. Every
// protocol the host publishes sits in a HostedProtocol record next to the
// object that carries it out, so an entry point finds its owner from `This`
// alone; serve() then runs the operation the way firmware does: at
// TPL_NOTIFY, so timer notifications never run inside it, and without
// letting a host exception unwind into the application's frames.
#pragma once

#include <new>
#include <type_traits>

#include "efi/efi.h"
#include "hostfw/events.h"

namespace hostfw {

template <typename Protocol, typename Owner>
struct HostedProtocol {
  Protocol protocol{};  // what the application holds: `This` points here
  Owner* owner = nullptr;
};

// Runs one firmware operation at TPL_NOTIFY (or above, when the caller holds
// more); a host allocation failure becomes EFI_OUT_OF_RESOURCES, any other
// host exception EFI_DEVICE_ERROR.
template <typename Operation>
EFI_STATUS run_at_notify(Events& events, Operation&& operation) {
  TplGuard guard(events, TPL_NOTIFY);
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return EFI_OUT_OF_RESOURCES;
  } catch (...) {
    return EFI_DEVICE_ERROR;
  }
}

// The body of every protocol entry point: operation(owner) for the owner of
// This. The owner provides events(), the machine's task priority.
template <typename Owner, typename Protocol, typename Operation>
EFI_STATUS serve(Protocol* This, Operation&& operation) {
  using Record = HostedProtocol<Protocol, Owner>;
  static_assert(std::is_standard_layout_v<Record>, "`This` must be the record's address");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  Owner* owner = reinterpret_cast<Record*>(This)->owner;
  if (owner == nullptr) return EFI_INVALID_PARAMETER;
  return run_at_notify(owner->events(), [&] { return operation(*owner); });
}

}  // namespace hostfw
