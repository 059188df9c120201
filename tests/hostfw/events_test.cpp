// Timers, notifications and task priority levels of the host firmware.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostfw/clock.h"
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
  bs()->RestoreTPL(TPL_CALLBACK);
  EXPECT_EQ(g_log, (Log{"notify a", "notify b"}));
  bs()->RestoreTPL(old);
  EXPECT_EQ(g_log, (Log{"notify a", "notify b", "callback"}));

  // At the application's priority a signal runs its notification at once.
  bs()->SignalEvent(callback);
  EXPECT_EQ(g_log.size(), 4u);
  EXPECT_EQ(bs()->CheckEvent(callback), EFI_INVALID_PARAMETER) << "signal events cannot be checked";
  for (EFI_EVENT e : {callback, notify_a, notify_b}) EXPECT_EQ(bs()->CloseEvent(e), EFI_SUCCESS);
  EXPECT_EQ(bs()->CloseEvent(callback), EFI_INVALID_PARAMETER);
}

TEST_F(Events, WaitingIsOnlyAllowedAtTheApplicationsPriority) {
  EFI_EVENT timer = nullptr;
  ASSERT_EQ(bs()->CreateEvent(EVT_TIMER, 0, nullptr, nullptr, &timer), EFI_SUCCESS);
  ASSERT_EQ(bs()->SetTimer(timer, TimerRelative, 50 * 10000), EFI_SUCCESS);  // 50 ms
  UINTN index = 99;
  const EFI_TPL old = bs()->RaiseTPL(TPL_CALLBACK);
  EXPECT_EQ(bs()->WaitForEvent(1, &timer, &index), EFI_UNSUPPORTED);
  bs()->RestoreTPL(old);
  const uint64_t before = machine->clock().now_ns();
  EXPECT_EQ(bs()->WaitForEvent(1, &timer, &index), EFI_SUCCESS);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(machine->clock().now_ns() - before, 50u * 1000 * 1000) << "virtual time jumps to the deadline";
  EXPECT_EQ(bs()->CheckEvent(timer), EFI_NOT_READY) << "waiting consumed the signal";
  bs()->CloseEvent(timer);
}

TEST_F(Events, TimersFireInDeadlineOrderOncePerPeriodOfStalledTime) {
  EFI_EVENT late = create(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_CALLBACK, "late");
  EFI_EVENT tick = create(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, "tick");
  ASSERT_EQ(bs()->SetTimer(late, TimerRelative, 12 * 10000), EFI_SUCCESS);  // 12 ms
  ASSERT_EQ(bs()->SetTimer(tick, TimerPeriodic, 5 * 10000), EFI_SUCCESS);   // 5 ms
  bs()->Stall(22 * 1000);
  EXPECT_EQ(g_log, (Log{"tick", "tick", "late", "tick", "tick"}));
  // Held off while the priority is raised, then caught up once without a burst.
  const EFI_TPL old = bs()->RaiseTPL(TPL_NOTIFY);
  bs()->Stall(100 * 1000);
  EXPECT_EQ(g_log.size(), 5u);
  bs()->RestoreTPL(old);
  EXPECT_EQ(g_log.size(), 6u);
  ASSERT_EQ(bs()->SetTimer(tick, TimerCancel, 0), EFI_SUCCESS);
  bs()->Stall(50 * 1000);
  EXPECT_EQ(g_log.size(), 6u);
  for (EFI_EVENT e : {late, tick}) bs()->CloseEvent(e);
}

TEST_F(Events, CreationRefusesInconsistentRequests) {
  const size_t open_before = machine->events().open_events();
  EFI_EVENT e = nullptr;
  EXPECT_EQ(bs()->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_NOTIFY, nullptr, nullptr, &e), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs()->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_APPLICATION, LogNotify, nullptr, &e), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs()->CreateEvent(EVT_NOTIFY_SIGNAL | EVT_NOTIFY_WAIT, TPL_NOTIFY, LogNotify, nullptr, &e),
            EFI_INVALID_PARAMETER);
  ASSERT_EQ(bs()->CreateEvent(0, 0, nullptr, nullptr, &e), EFI_SUCCESS);
  EXPECT_EQ(bs()->SetTimer(e, TimerRelative, 1), EFI_INVALID_PARAMETER) << "not a timer event";
  bs()->CloseEvent(e);
  EXPECT_EQ(machine->events().open_events(), open_before);
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

}  // namespace
