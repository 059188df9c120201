// The recovery screen's line store: exact-size copies, an array that grows
// by five and keeps the lines in order, a line the pool cannot hold dropped,
// and nothing left once the record goes.
#include <gtest/gtest.h>

#include <string>

#include "core/wide_string.h"
#include "tests/support/test_machine.h"
#include "ui/recovery_screen.h"

namespace {

using testing_support::utf8;

TEST(RecoveryLines, TheArrayGrowsByFiveKeepingEveryLineInOrderAndALineThePoolCannotHoldIsDropped) {
  testing_support::TestMachine machine;
  {
    tarvik::RecoveryRun run;
    ASSERT_TRUE(run.SetUp());
    const auto store = [&](int i) {
      const std::u16string text = u"line " + std::u16string(1, static_cast<char16_t>(u'A' + i));
      return run.StoreLine(reinterpret_cast<const CHAR16*>(text.c_str()));
    };
    for (int i = 0; i < 11; ++i) {
      // The sixth line cannot be had at first: dropped, the array as it was.
      if (i == 5) {
        machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 1;
        EXPECT_EQ(store(i), EFI_OUT_OF_RESOURCES);
        EXPECT_EQ(run.RecoverLineCount, 5u);
        EXPECT_EQ(run.RecoverLineCapacity, 5u);
      }
      ASSERT_EQ(store(i), EFI_SUCCESS);
      EXPECT_EQ(run.RecoverLineCapacity, i < 5 ? 5u : i < 10 ? 10u : 15u) << i;
    }
    ASSERT_EQ(run.RecoverLineCount, 11u);
    for (UINT64 i = 0; i < 11; ++i) {
      EXPECT_EQ(utf8(run.RecoverLines[i]), "line " + std::string(1, static_cast<char>('A' + i)));
      EXPECT_EQ(tarvik::StrLen(run.RecoverLines[i]), 6u);
    }
  }
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace
