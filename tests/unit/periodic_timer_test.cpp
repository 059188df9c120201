// The periodic-timer owner on the host firmware's virtual clock: one
// notification a period, none once the owner has gone or started afresh.
#include "core/periodic_timer.h"

#include <gtest/gtest.h>

#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

constexpr UINT64 kMillisecond = 10000;  // in 100 ns units

EFIAPI VOID count_tick(EFI_EVENT, VOID* context) { ++*static_cast<int*>(context); }

TEST(PeriodicTimer, NotifiesOnceAPeriodAndNeverAfterItGoesOrStartsAfresh) {
  TestMachine machine;
  const size_t events_before = machine->events().open_events();
  int ticks = 0;
  {
    tarvik::PeriodicTimer timer;
    ASSERT_EQ(timer.StartNotifying(TPL_NOTIFY, count_tick, &ticks, kMillisecond), EFI_SUCCESS);
    tarvik::gBS->Stall(10500);
    EXPECT_EQ(ticks, 10);
    // A second start replaces the first timer rather than adding one.
    ASSERT_EQ(timer.StartNotifying(TPL_NOTIFY, count_tick, &ticks, 2 * kMillisecond), EFI_SUCCESS);
    tarvik::gBS->Stall(10500);
    EXPECT_EQ(ticks, 15);
    EXPECT_EQ(machine->events().open_events(), events_before + 1);
  }
  tarvik::gBS->Stall(10000);
  EXPECT_EQ(ticks, 15);
  EXPECT_EQ(machine->events().open_events(), events_before);
}

// A waitable timer pacing its waiter is checked where the self-tests poll
// with one (SmartSelfTest.AShortSelfTestIsFollowedEveryFiveSecondsToItsEnd).

}  // namespace
