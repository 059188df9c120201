// The sector-address list: newest first, each address once, every node
// freed however the list ends, and a refused allocation leaves it as it was.
#include <gtest/gtest.h>

#include <vector>

#include "storage/lba_list.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

std::vector<uint64_t> contents(const tarvik::LbaList& list) {
  std::vector<uint64_t> out;
  list.ForEach([&](UINT64 lba) { out.push_back(lba); });
  return out;
}

TEST(LbaList, KeepsEachAddressOnceNewestFirstAndFreesItsNodes) {
  TestMachine machine;
  const size_t pools_before = machine->memory().outstanding_pools();
  {
    tarvik::LbaList list;
    EXPECT_TRUE(list.Empty());
    for (uint64_t lba : {5000ull, 7ull, 5000ull, 0ull, 7ull}) ASSERT_EQ(list.Add(lba), EFI_SUCCESS);
    EXPECT_EQ(contents(list), (std::vector<uint64_t>{0, 7, 5000}));
    EXPECT_EQ(list.Count(), 3u);
    EXPECT_EQ(machine->memory().outstanding_pools(), pools_before + 3);
    EXPECT_EQ(machine->memory().outstanding_pool_bytes(), 3u * sizeof(tarvik::LbaNode));

    EXPECT_EQ(list.Front(), 0u);
    list.PopFront();
    EXPECT_EQ(contents(list), (std::vector<uint64_t>{7, 5000}));
    EXPECT_FALSE(list.Contains(0));
  }  // the rest goes with the list
  EXPECT_EQ(machine->memory().outstanding_pools(), pools_before);
}

TEST(LbaList, ARefusedNodeLeavesTheListAsItWas) {
  TestMachine machine;
  tarvik::LbaList list;
  ASSERT_EQ(list.Add(1), EFI_SUCCESS);
  machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 1;
  EXPECT_EQ(list.Add(2), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(list.Add(1), EFI_SUCCESS) << "an address already listed needs no node";
  EXPECT_EQ(contents(list), (std::vector<uint64_t>{1}));
  list.Clear();
  EXPECT_TRUE(list.Empty());
  list.PopFront();  // nothing to free
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace
