// The simulated physical memory and its memory map.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

// The memory map, asked for first without a buffer as callers do.
std::vector<EFI_MEMORY_DESCRIPTOR> read_map(EFI_BOOT_SERVICES* bs) {
  UINTN size = 0, map_key = 0, descriptor_size = 0;
  UINT32 version = 0;
  EXPECT_EQ(bs->GetMemoryMap(&size, nullptr, &map_key, &descriptor_size, &version), EFI_BUFFER_TOO_SMALL);
  EXPECT_GT(descriptor_size, sizeof(EFI_MEMORY_DESCRIPTOR)) << "callers must step by the descriptor size";
  std::vector<uint8_t> bytes(size);
  EXPECT_EQ(bs->GetMemoryMap(&size, reinterpret_cast<EFI_MEMORY_DESCRIPTOR*>(bytes.data()), &map_key,
                             &descriptor_size, &version),
            EFI_SUCCESS);
  std::vector<EFI_MEMORY_DESCRIPTOR> out(size / descriptor_size);
  for (size_t i = 0; i < out.size(); ++i) std::memcpy(&out[i], bytes.data() + i * descriptor_size, sizeof out[i]);
  return out;
}

TEST(Memory, TheMapCoversTheWholeMachineWithoutGapsOrOverlaps) {
  TestMachine machine;
  const auto regions = read_map(machine->boot_services());
  ASSERT_FALSE(regions.empty());
  uint64_t end = regions.front().PhysicalStart, free_pages = 0;
  for (const auto& d : regions) {
    EXPECT_EQ(d.PhysicalStart, end);
    end = d.PhysicalStart + d.NumberOfPages * EFI_PAGE_SIZE;
    if (d.Type == EfiConventionalMemory) free_pages += d.NumberOfPages;
  }
  EXPECT_EQ(end - regions.front().PhysicalStart, machine->profile().memory_mib * 1024 * 1024);
  EXPECT_EQ(free_pages, machine->memory().conventional_pages());
  EXPECT_GT(free_pages, machine->profile().memory_mib * 256 * 9 / 10) << "most memory is free";
}

TEST(Memory, PagesAreClaimedAndFreedExactlyAndTheMapShowsIt) {
  TestMachine machine;
  EFI_BOOT_SERVICES* bs = machine->boot_services();
  const auto regions = read_map(bs);
  EFI_PHYSICAL_ADDRESS start = 0, largest = 0;
  for (const auto& d : regions)
    if (d.Type == EfiConventionalMemory && d.NumberOfPages > largest) {
      largest = d.NumberOfPages;
      start = d.PhysicalStart;
    }
  const uint64_t free_before = machine->memory().conventional_pages();
  EFI_PHYSICAL_ADDRESS at = start + 16 * EFI_PAGE_SIZE;
  ASSERT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 8, &at), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().conventional_pages(), free_before - 8);
  bool seen = false;
  for (const auto& d : read_map(bs))
    seen |= d.Type == EfiLoaderData && d.PhysicalStart == at && d.NumberOfPages == 8;
  EXPECT_TRUE(seen);

  EFI_PHYSICAL_ADDRESS overlapping = at + 7 * EFI_PAGE_SIZE, unaligned = at + 8 * EFI_PAGE_SIZE + 1;
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 2, &overlapping), EFI_NOT_FOUND);
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 2, &unaligned), EFI_INVALID_PARAMETER);

  // Freeing part of a claim gives back just that part.
  EXPECT_EQ(bs->FreePages(at, 4), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().outstanding_pages(), 4u);
  EXPECT_EQ(bs->FreePages(at, 4), EFI_NOT_FOUND) << "those pages are free already";
  EXPECT_EQ(bs->FreePages(at + 4 * EFI_PAGE_SIZE, 4), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().conventional_pages(), free_before);
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);
}

TEST(Memory, PoolsAreCountedSoLeaksShow) {
  TestMachine machine;
  EFI_BOOT_SERVICES* bs = machine->boot_services();
  const size_t before = machine->memory().outstanding_pools();
  VOID* a = nullptr;
  ASSERT_EQ(bs->AllocatePool(EfiLoaderData, 0, &a), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().outstanding_pools(), before + 1);
  EXPECT_EQ(bs->AllocatePool(EfiConventionalMemory, 10, &a), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->FreePool(a), EFI_SUCCESS);
  EXPECT_EQ(bs->FreePool(a), EFI_INVALID_PARAMETER) << "a double free is refused";
  EXPECT_EQ(machine->memory().outstanding_pools(), before);
}

}  // namespace
