// Pool allocations and a simulated physical memory with its memory map.
//
// Pools come from the host's allocator (so AddressSanitizer checks them) and
// are counted so that tests can assert that nothing leaks. Pages come from
// one block of host memory whose addresses are the simulated physical
// addresses: the memory map describes that block, and AllocatePages with
// AllocateAddress claims exactly the pages asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "efi/efi.h"

namespace hostfw {

struct Faults;

struct MemoryRegion {
  EFI_MEMORY_TYPE type;
  uint64_t start;  // physical (host) address, page aligned
  uint64_t pages;
  uint64_t attribute;
};

class Memory {
 public:
  // Descriptors handed out by GetMemoryMap are this long, more than
  // sizeof(EFI_MEMORY_DESCRIPTOR), as on real firmware.
  static constexpr UINTN kDescriptorSize = 48;

  Memory(uint64_t size_mib, Faults& faults);
  ~Memory();

  EFI_STATUS allocate_pool(EFI_MEMORY_TYPE type, UINTN size, void** buffer);
  EFI_STATUS free_pool(void* buffer);
  EFI_STATUS allocate_pages(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memory_type, UINTN pages,
                            EFI_PHYSICAL_ADDRESS* memory);
  EFI_STATUS free_pages(EFI_PHYSICAL_ADDRESS memory, UINTN pages);
  EFI_STATUS get_memory_map(UINTN* size, EFI_MEMORY_DESCRIPTOR* map, UINTN* key, UINTN* descriptor_size,
                            UINT32* version);

  // ---- Inspection, for tests and the profile ----------------------------------
  uint64_t base() const { return base_; }
  uint64_t size() const { return size_; }
  const std::vector<MemoryRegion>& regions() const { return regions_; }
  uint64_t conventional_pages() const;
  size_t outstanding_pools() const { return pools_.size(); }
  uint64_t outstanding_pool_bytes() const;
  uint64_t outstanding_pages() const;
  uint64_t pool_allocations() const { return pool_allocations_; }
  uint64_t bad_frees() const { return bad_frees_; }

 private:
  void set_range(uint64_t start, uint64_t pages, EFI_MEMORY_TYPE type);
  bool range_is(uint64_t start, uint64_t pages, EFI_MEMORY_TYPE type) const;
  void merge();

  Faults& faults_;
  uint64_t base_ = 0;
  uint64_t size_ = 0;
  void* mapping_ = nullptr;
  std::vector<MemoryRegion> regions_;                 // sorted, covering [base, base + size)
  std::map<uint64_t, uint64_t> page_allocations_;     // start -> pages
  std::unordered_map<void*, size_t> pools_;
  uint64_t pool_allocations_ = 0;
  uint64_t address_allocations_ = 0;
  uint64_t bad_frees_ = 0;
  uint64_t map_key_ = 1;
};

}  // namespace hostfw
