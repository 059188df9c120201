// The periodic-timer owner on the host firmware's virtual clock: one
// notification a period, none once the owner has gone or started afresh,
// and a waitable timer that paces its waiter.
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

TEST(PeriodicTimer, AWaitableTimerHoldsItsWaiterToThePeriod) {
  TestMachine machine;
  tarvik::PeriodicTimer timer;
  ASSERT_EQ(timer.StartWaitable(5 * kMillisecond), EFI_SUCCESS);
  const uint64_t start = machine->clock().now_ns();
  for (int tick = 0; tick < 3; ++tick) ASSERT_EQ(timer.WaitTick(), EFI_SUCCESS);
  EXPECT_EQ(machine->clock().now_ns() - start, 15000000u);
  timer.Close();
  EXPECT_EQ(timer.WaitTick(), EFI_NOT_STARTED);
}

}  // namespace
