// The recovery screen's line store when the pool cannot hold a line: the
// line is dropped, the stored ones stay, and nothing is left once the record
// goes. Its growth and order are the recovery screen tests', which store
// dozens of lines and show them.
#include <gtest/gtest.h>

#include "tests/support/test_machine.h"
#include "ui/recovery_screen.h"

namespace {

TEST(RecoveryLines, ALineThePoolCannotHoldIsDroppedAndTheStoredOnesStay) {
  testing_support::TestMachine machine;
  {
    tarvik::RecoveryRun run;
    ASSERT_TRUE(run.SetUp());
    for (int i = 0; i < 5; ++i) ASSERT_EQ(run.StoreLine(u"kept"), EFI_SUCCESS);
    // The sixth line needs a longer array as well as its copy.
    machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 1;
    EXPECT_EQ(run.StoreLine(u"dropped"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(run.StoreLine(u"next"), EFI_SUCCESS);
    EXPECT_EQ(run.RecoverLineCount, 6u);
    EXPECT_EQ(run.RecoverLineCapacity, 10u);
    EXPECT_EQ(testing_support::utf8(run.RecoverLines[4]), "kept");
    EXPECT_EQ(testing_support::utf8(run.RecoverLines[5]), "next");
  }
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace
