// The one way into the host firmware's protocols: the owner found from
// This, TPL_NOTIFY held while the operation works, host exceptions turned
// into statuses.
#include <gtest/gtest.h>

#include <stdexcept>

#include "hostfw/protocol_thunk.h"
#include "tests/support/test_machine.h"

namespace {

struct FakeProtocol {
  UINT64 revision;
};

struct Owner {
  hostfw::Events* events_;
  hostfw::Events& events() const { return *events_; }
};

TEST(ProtocolThunk, FindsTheOwnerHoldsNotifyAndTurnsExceptionsIntoStatuses) {
  testing_support::TestMachine machine;
  Owner owner{&machine->events()};
  hostfw::HostedProtocol<FakeProtocol, Owner> hosted;
  hosted.owner = &owner;
  FakeProtocol* This = &hosted.protocol;

  EFI_TPL during = 0;
  const Owner* found = nullptr;
  EXPECT_EQ(hostfw::serve<Owner>(This,
                                 [&](Owner& o) {
                                   found = &o;
                                   during = machine->events().tpl();
                                   return EFI_WARN_DELETE_FAILURE;
                                 }),
            EFI_WARN_DELETE_FAILURE);
  EXPECT_EQ(found, &owner);
  EXPECT_EQ(during, TPL_NOTIFY);
  EXPECT_EQ(machine->events().tpl(), TPL_APPLICATION) << "restored afterwards";

  auto throwing = [&](auto exception) {
    return hostfw::serve<Owner>(This, [&](Owner&) -> EFI_STATUS { throw exception; });
  };
  EXPECT_EQ(throwing(std::bad_alloc()), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(throwing(std::runtime_error("host I/O")), EFI_DEVICE_ERROR);
  EXPECT_EQ(machine->events().tpl(), TPL_APPLICATION) << "restored after an exception too";

  // A caller above TPL_NOTIFY keeps its priority.
  const EFI_TPL old = machine->boot_services()->RaiseTPL(TPL_HIGH_LEVEL);
  hostfw::serve<Owner>(This, [&](Owner&) { return during = machine->events().tpl(), EFI_SUCCESS; });
  machine->boot_services()->RestoreTPL(old);
  EXPECT_EQ(during, TPL_HIGH_LEVEL);

  FakeProtocol* none = nullptr;
  EXPECT_EQ(hostfw::serve<Owner>(none, [](Owner&) { return EFI_SUCCESS; }), EFI_INVALID_PARAMETER);
}

}  // namespace
