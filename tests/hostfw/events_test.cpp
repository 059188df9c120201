// Notifications and task priority levels of the host firmware, the one way
// into its protocols (the owner found from This, TPL_NOTIFY held while the
// operation works, host exceptions turned into statuses), and timers on the
// host's own clock. Timers on the virtual clock are followed by the
// periodic-timer and media-time tests.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "hostfw/clock.h"
#include "hostfw/protocol_thunk.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using Log = std::vector<std::string>;

Log g_log;
EFIAPI VOID LogNotify(EFI_EVENT, VOID* context) { g_log.push_back(static_cast<const char*>(context)); }

class Events : public ::testing::Test {
 protected:
  void SetUp() override { g_log.clear(); }
  EFI_EVENT create(UINT32 type, EFI_TPL tpl, const char* name) {
    EFI_EVENT e = nullptr;
    EXPECT_EQ(bs()->CreateEvent(type, tpl, LogNotify, const_cast<char*>(name), &e), EFI_SUCCESS);
    return e;
  }
  EFI_BOOT_SERVICES* bs() { return machine->boot_services(); }
  TestMachine machine;
};

TEST_F(Events, PendingNotificationsRunHighestFirstWhenThePriorityDrops) {
  EFI_EVENT callback = create(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, "callback");
  EFI_EVENT notify_a = create(EVT_NOTIFY_SIGNAL, TPL_NOTIFY, "notify a");
  EFI_EVENT notify_b = create(EVT_NOTIFY_SIGNAL, TPL_NOTIFY, "notify b");
  const EFI_TPL old = bs()->RaiseTPL(TPL_NOTIFY);
  EXPECT_EQ(old, static_cast<EFI_TPL>(TPL_APPLICATION));
  for (EFI_EVENT e : {callback, notify_a, notify_b}) bs()->SignalEvent(e);
  EXPECT_TRUE(g_log.empty()) << "nothing runs at or below the current priority";
  UINTN index = 0;
  EXPECT_EQ(bs()->WaitForEvent(1, &callback, &index), EFI_UNSUPPORTED) << "waiting above the application's priority";
  bs()->RestoreTPL(TPL_CALLBACK);
  EXPECT_EQ(g_log, (Log{"notify a", "notify b"}));
  bs()->RestoreTPL(old);
  EXPECT_EQ(g_log, (Log{"notify a", "notify b", "callback"}));

  // At the application's priority a signal runs its notification at once.
  bs()->SignalEvent(callback);
  EXPECT_EQ(g_log.size(), 4u);
  for (EFI_EVENT e : {callback, notify_a, notify_b}) bs()->CloseEvent(e);
}

// With the host's clocks a timer interrupts a loop that calls nothing, as a
// firmware timer interrupt does.
volatile int g_ticks = 0;
EFIAPI VOID CountTick(EFI_EVENT, VOID*) { g_ticks = g_ticks + 1; }

TEST(EventsRealClock, ATimerInterruptsALoopThatCallsNothing) {
  hostfw::Options options;
  options.virtual_clock = false;
  const auto dir = std::filesystem::temp_directory_path() / "tarvik-events-real";
  hostfw::Machine machine(hostfw::default_profile(dir.string()), options);
  EFI_BOOT_SERVICES* bs = machine.boot_services();
  EFI_EVENT tick = nullptr;
  ASSERT_EQ(bs->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, CountTick, nullptr, &tick), EFI_SUCCESS);
  ASSERT_EQ(bs->SetTimer(tick, TimerPeriodic, 2 * 10000), EFI_SUCCESS);
  g_ticks = 0;
  const auto spin_ms = [](uint64_t ms, auto done) {
    for (const uint64_t until = hostfw::host_monotonic_ns() + ms * 1000 * 1000;
         !done() && hostfw::host_monotonic_ns() < until;) {
    }
  };
  spin_ms(5000, [] { return g_ticks >= 3; });
  EXPECT_GE(g_ticks, 3);

  // Not while the application holds the priority at the timer's level.
  const EFI_TPL old = bs->RaiseTPL(TPL_NOTIFY);
  const int held = g_ticks;
  spin_ms(20, [] { return false; });
  EXPECT_EQ(g_ticks, held);
  bs->RestoreTPL(old);
  EXPECT_GE(g_ticks, held + 1) << "the held-off tick runs when the priority drops";
  bs->CloseEvent(tick);
  std::filesystem::remove_all(dir);
}

// ---- Into the protocols ---------------------------------------------------------

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
