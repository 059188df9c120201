// The test flow's run record owns every buffer it allocates: whichever
// allocation the pool refuses, destroying the record leaves nothing behind.
// And the module's callbacks outside a flow neither store nor crash.
#include <gtest/gtest.h>

#include "log/log_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"
#include "ui/run_flow.h"
#include "ui/run_record.h"
#include "ui/ui_state.h"

namespace {

using testing_support::FakeTestModule;
using testing_support::TestMachine;
using tarvik::TestRunRecord;

TEST(TestRunRecord, EveryRefusedAllocationLeavesNothingOnceTheRecordIsGone) {
  TestMachine machine;
  FakeTestModule module(machine->image_handle());
  module.summary_lines = {u"MESSAGE ONE", u"MESSAGE TWO"};
  const size_t before = machine->memory().outstanding_pools();
  bool completed = false;
  for (uint64_t refused = 1; !completed && refused < 200; ++refused) {
    SCOPED_TRACE(refused);
    {
      TestRunRecord run;
      machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + refused;
      EFI_STATUS status = run.SetUp(2, 3);
      if (!EFI_ERROR(status)) status = run.SetUpTimes(6);
      if (!EFI_ERROR(status)) {
        run.CollectSummary(*module.record());
        completed = run.SummaryLineCount == 2 && run.SummaryLines[1] != nullptr;
      }
      machine->faults().fail_allocate_pool_call = 0;
      if (completed) {
        // Set up in full: zeroed states, message cells of their size, no codes yet.
        run.SetState(1, 2, tarvik::QueueState::Failed);
        EXPECT_EQ(run.TestStates[1][2], 3);
        EXPECT_EQ(run.State(0, 0), tarvik::QueueState::OnQueue);
        EXPECT_EQ(run.TestMessages[1][2][99] - run.TestMessages[1][2][0], 99 * 100);
        EXPECT_EQ(run.DeviceResultCodes[1], nullptr);
      }
    }
    EXPECT_EQ(machine->memory().outstanding_pools(), before);
  }
  EXPECT_TRUE(completed);
}

TEST(TestRunRecord, CallbacksOutsideAFlowDropLinesButStillSwitchTheClock) {
  TestMachine machine;
  const size_t before = machine->memory().outstanding_pools();
  EXPECT_EQ(tarvik::TestMessageCallback(nullptr, u"ERROR LOST", static_cast<UINT8>(tarvik::TestMessageKind::LogLine), 0), EFI_SUCCESS);
  EXPECT_EQ(tarvik::TestProgressCallback(nullptr, 50, 0), EFI_SUCCESS);
  EXPECT_EQ(machine.transcript(), "");
  tarvik::TestMessageCallback(nullptr, nullptr, static_cast<UINT8>(tarvik::TestMessageKind::ClockOff), 0);
  EXPECT_EQ(tarvik::ClockEnabled, 0);
  tarvik::TestMessageCallback(nullptr, nullptr, static_cast<UINT8>(tarvik::TestMessageKind::ClockOn), 0);
  EXPECT_EQ(tarvik::ClockEnabled, 1);
  EXPECT_EQ(machine->memory().outstanding_pools(), before);
}

}  // namespace
