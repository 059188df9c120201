// The simulated physical memory and its memory map.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

struct Map {
  std::vector<uint8_t> bytes;
  UINTN descriptor_size = 0;
  UINTN key = 0;
  std::vector<EFI_MEMORY_DESCRIPTOR> descriptors() const {
    std::vector<EFI_MEMORY_DESCRIPTOR> out;
    for (size_t at = 0; at + descriptor_size <= bytes.size(); at += descriptor_size) {
      EFI_MEMORY_DESCRIPTOR d;
      std::memcpy(&d, bytes.data() + at, sizeof d);
      out.push_back(d);
    }
    return out;
  }
};

Map read_map(EFI_BOOT_SERVICES* bs) {
  Map map;
  UINTN size = 0;
  UINT32 version = 0;
  EXPECT_EQ(bs->GetMemoryMap(&size, nullptr, &map.key, &map.descriptor_size, &version), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(version, 1u);
  EXPECT_GT(map.descriptor_size, sizeof(EFI_MEMORY_DESCRIPTOR)) << "callers must step by the descriptor size";
  map.bytes.resize(size);
  EXPECT_EQ(bs->GetMemoryMap(&size, reinterpret_cast<EFI_MEMORY_DESCRIPTOR*>(map.bytes.data()), &map.key,
                             &map.descriptor_size, &version),
            EFI_SUCCESS);
  map.bytes.resize(size);
  return map;
}

TEST(Memory, TheMapCoversTheWholeMachineWithoutGapsOrOverlaps) {
  TestMachine machine;
  const Map map = read_map(machine->boot_services());
  const auto regions = map.descriptors();
  ASSERT_FALSE(regions.empty());
  uint64_t expected_start = regions.front().PhysicalStart;
  uint64_t free_pages = 0;
  for (const auto& d : regions) {
    EXPECT_EQ(d.PhysicalStart, expected_start);
    expected_start = d.PhysicalStart + d.NumberOfPages * EFI_PAGE_SIZE;
    if (d.Type == EfiConventionalMemory) free_pages += d.NumberOfPages;
  }
  EXPECT_EQ(expected_start - regions.front().PhysicalStart, machine->profile().memory_mib * 1024 * 1024);
  EXPECT_EQ(free_pages, machine->memory().conventional_pages());
  EXPECT_GT(free_pages, machine->profile().memory_mib * 256 * 9 / 10) << "most memory is free";
}

TEST(Memory, AllocateAddressClaimsExactlyThosePagesOrFails) {
  TestMachine machine;
  EFI_BOOT_SERVICES* bs = machine->boot_services();
  const auto regions = read_map(bs).descriptors();
  const EFI_MEMORY_DESCRIPTOR* largest = nullptr;
  for (const auto& d : regions)
    if (d.Type == EfiConventionalMemory && (largest == nullptr || d.NumberOfPages > largest->NumberOfPages))
      largest = &d;
  ASSERT_NE(largest, nullptr);
  const uint64_t free_before = machine->memory().conventional_pages();

  EFI_PHYSICAL_ADDRESS at = largest->PhysicalStart + 16 * EFI_PAGE_SIZE;
  ASSERT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 8, &at), EFI_SUCCESS);
  EXPECT_EQ(at, largest->PhysicalStart + 16 * EFI_PAGE_SIZE);
  std::memset(reinterpret_cast<void*>(at), 0xA5, 8 * EFI_PAGE_SIZE);  // the pages are real memory
  EXPECT_EQ(machine->memory().conventional_pages(), free_before - 8);

  EFI_PHYSICAL_ADDRESS overlapping = at + 7 * EFI_PAGE_SIZE;
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 2, &overlapping), EFI_NOT_FOUND);
  EFI_PHYSICAL_ADDRESS reserved = regions.front().PhysicalStart + 0xA0000;
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 1, &reserved), EFI_NOT_FOUND);
  EFI_PHYSICAL_ADDRESS unaligned = at + 8 * EFI_PAGE_SIZE + 1;
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiLoaderData, 1, &unaligned), EFI_INVALID_PARAMETER);
  EFI_PHYSICAL_ADDRESS conventional = at + 8 * EFI_PAGE_SIZE;
  EXPECT_EQ(bs->AllocatePages(AllocateAddress, EfiConventionalMemory, 1, &conventional), EFI_INVALID_PARAMETER);

  // The map shows the claim, and freeing part of it gives back just that part.
  bool seen = false;
  for (const auto& d : read_map(bs).descriptors())
    seen |= d.Type == EfiLoaderData && d.PhysicalStart == at && d.NumberOfPages == 8;
  EXPECT_TRUE(seen);
  EXPECT_EQ(bs->FreePages(at, 4), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().outstanding_pages(), 4u);
  EXPECT_EQ(bs->FreePages(at, 4), EFI_NOT_FOUND) << "those pages are free already";
  EXPECT_EQ(bs->FreePages(at + 4 * EFI_PAGE_SIZE, 4), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().conventional_pages(), free_before);
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);
}

TEST(Memory, AnyPagesComeFromTheTopAndTheMapKeyChanges) {
  TestMachine machine;
  EFI_BOOT_SERVICES* bs = machine->boot_services();
  const UINTN key_before = read_map(bs).key;
  EFI_PHYSICAL_ADDRESS low = 0, high = 0;
  ASSERT_EQ(bs->AllocatePages(AllocateAnyPages, EfiBootServicesData, 3, &high), EFI_SUCCESS);
  low = machine->memory().base() + 0x1000000;  // below 16 MiB into the machine
  ASSERT_EQ(bs->AllocatePages(AllocateMaxAddress, EfiBootServicesData, 1, &low), EFI_SUCCESS);
  EXPECT_LT(low, machine->memory().base() + 0x1000000);
  EXPECT_GT(high, low);
  EXPECT_NE(read_map(bs).key, key_before);
  EFI_PHYSICAL_ADDRESS too_many = 0;
  EXPECT_EQ(bs->AllocatePages(AllocateAnyPages, EfiBootServicesData, machine->memory().size() / EFI_PAGE_SIZE,
                              &too_many),
            EFI_OUT_OF_RESOURCES);
  bs->FreePages(high, 3);
  bs->FreePages(low, 1);
}

TEST(Memory, PoolsAreCountedSoLeaksShow) {
  TestMachine machine;
  EFI_BOOT_SERVICES* bs = machine->boot_services();
  const size_t before = machine->memory().outstanding_pools();
  VOID* a = nullptr;
  VOID* b = nullptr;
  ASSERT_EQ(bs->AllocatePool(EfiBootServicesData, 100, &a), EFI_SUCCESS);
  ASSERT_EQ(bs->AllocatePool(EfiLoaderData, 0, &b), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().outstanding_pools(), before + 2);
  EXPECT_EQ(bs->AllocatePool(EfiConventionalMemory, 10, &a), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->FreePool(a), EFI_SUCCESS);
  EXPECT_EQ(bs->FreePool(a), EFI_INVALID_PARAMETER) << "a double free is refused";
  EXPECT_EQ(machine->memory().bad_frees(), 1u);
  EXPECT_EQ(bs->FreePool(b), EFI_SUCCESS);
  EXPECT_EQ(machine->memory().outstanding_pools(), before);
}

}  // namespace
