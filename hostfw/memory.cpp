#include "hostfw/memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "hostfw/machine.h"

namespace hostfw {
namespace {

constexpr uint64_t kPage = EFI_PAGE_SIZE;
constexpr uint64_t kMiB = 1024 * 1024;
// Where the simulated memory is placed when the host allows it, so that
// addresses repeat from run to run. Low enough to stay out of the
// sanitizers' shadow memory.
constexpr uint64_t kPreferredBase = 0x40000000;

bool valid_allocation_type(EFI_MEMORY_TYPE type) {
  return type < EfiMaxMemoryType && type != EfiConventionalMemory && type != EfiPersistentMemory &&
         type != EfiUnacceptedMemoryType;
}

uint64_t attribute_for(EFI_MEMORY_TYPE type) {
  switch (type) {
    case EfiRuntimeServicesCode:
    case EfiRuntimeServicesData:
      return EFI_MEMORY_WB | EFI_MEMORY_RUNTIME;
    case EfiReservedMemoryType:
    case EfiMemoryMappedIO:
      return EFI_MEMORY_UC;
    default:
      return EFI_MEMORY_WB;
  }
}

}  // namespace

Memory::Memory(uint64_t size_mib, Faults& faults) : faults_(faults) {
  if (size_mib < 32) throw std::invalid_argument("simulated memory must be at least 32 MiB");
  size_ = size_mib * kMiB;
  void* at = mmap(reinterpret_cast<void*>(kPreferredBase), size_, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
  if (at == MAP_FAILED || reinterpret_cast<uint64_t>(at) != kPreferredBase) {
    if (at != MAP_FAILED) munmap(at, size_);
    at = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }
  if (at == MAP_FAILED) throw std::runtime_error("cannot reserve the simulated physical memory");
  mapping_ = at;
  base_ = reinterpret_cast<uint64_t>(at);

  // A PC-like map: low memory, the legacy hole, free memory above 1 MiB and
  // the firmware's own regions at the top.
  const uint64_t total_pages = size_ / kPage;
  regions_.push_back({EfiConventionalMemory, base_, total_pages, EFI_MEMORY_WB});
  set_range(base_, 1, EfiBootServicesData);
  set_range(base_ + 0xA0000, (0x100000 - 0xA0000) / kPage, EfiReservedMemoryType);
  struct TopRegion {
    EFI_MEMORY_TYPE type;
    uint64_t mib;
  };
  constexpr TopRegion top[] = {
      {EfiLoaderCode, 1},          {EfiBootServicesCode, 3},     {EfiBootServicesData, 6},
      {EfiRuntimeServicesCode, 1}, {EfiRuntimeServicesData, 1},  {EfiACPIReclaimMemory, 1},
      {EfiACPIMemoryNVS, 1},       {EfiReservedMemoryType, 2},
  };
  uint64_t at_top = base_ + size_;
  for (auto it = std::rbegin(top); it != std::rend(top); ++it) {
    at_top -= it->mib * kMiB;
    set_range(at_top, it->mib * kMiB / kPage, it->type);
  }
}

Memory::~Memory() {
  for (auto& [buffer, size] : pools_) std::free(buffer);
  if (mapping_ != nullptr) munmap(mapping_, size_);
}

EFI_STATUS Memory::allocate_pool(EFI_MEMORY_TYPE type, UINTN size, void** buffer) {
  ++pool_allocations_;
  if (buffer == nullptr || !valid_allocation_type(type)) return EFI_INVALID_PARAMETER;
  if (faults_.fail_allocate_pool_call != 0 && pool_allocations_ == faults_.fail_allocate_pool_call)
    return EFI_OUT_OF_RESOURCES;
  // Firmware pools are 8-byte aligned; malloc gives 16.
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) return EFI_OUT_OF_RESOURCES;
  pools_[p] = size;
  *buffer = p;
  return EFI_SUCCESS;
}

EFI_STATUS Memory::free_pool(void* buffer) {
  auto it = pools_.find(buffer);
  if (it == pools_.end()) {
    ++bad_frees_;
    return EFI_INVALID_PARAMETER;
  }
  pools_.erase(it);
  std::free(buffer);
  return EFI_SUCCESS;
}

EFI_STATUS Memory::allocate_pages(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memory_type, UINTN pages,
                                  EFI_PHYSICAL_ADDRESS* memory) {
  if (memory == nullptr || type >= MaxAllocateType || !valid_allocation_type(memory_type))
    return EFI_INVALID_PARAMETER;
  if (pages == 0) return EFI_INVALID_PARAMETER;
  uint64_t start = 0;
  if (type == AllocateAddress) {
    start = *memory;
    if (faults_.fail_allocate_at_address_call != 0 && ++address_allocations_ == faults_.fail_allocate_at_address_call)
      return EFI_NOT_FOUND;
    if (start % kPage != 0) return EFI_INVALID_PARAMETER;
    if (pages > size_ / kPage || !range_is(start, pages, EfiConventionalMemory)) return EFI_NOT_FOUND;
  } else {
    // Top-down, as firmware does, below the limit for AllocateMaxAddress.
    const uint64_t limit = type == AllocateMaxAddress ? *memory : UINT64_MAX;
    bool found = false;
    for (auto it = regions_.rbegin(); it != regions_.rend() && !found; ++it) {
      if (it->type != EfiConventionalMemory || it->pages < pages) continue;
      uint64_t end = it->start + it->pages * kPage;  // exclusive
      if (limit != UINT64_MAX) end = std::min(end, (limit + 1) & ~(kPage - 1));
      if (end < it->start + pages * kPage) continue;
      start = end - pages * kPage;
      found = true;
    }
    if (!found) return EFI_OUT_OF_RESOURCES;
  }
  set_range(start, pages, memory_type);
  page_allocations_[start] = pages;
  ++map_key_;
  *memory = start;
  return EFI_SUCCESS;
}

EFI_STATUS Memory::free_pages(EFI_PHYSICAL_ADDRESS memory, UINTN pages) {
  if (memory % kPage != 0) return EFI_INVALID_PARAMETER;
  // Any pages handed out by AllocatePages may be given back, whole or in part.
  uint64_t covered = 0;
  for (uint64_t page = 0; page < pages; ++page) {
    const uint64_t address = memory + page * kPage;
    auto it = page_allocations_.upper_bound(address);
    if (it == page_allocations_.begin()) break;
    --it;
    if (address >= it->first + it->second * kPage) break;
    ++covered;
  }
  if (pages == 0 || covered != pages) return EFI_NOT_FOUND;

  // Split the allocations the range cuts through.
  std::map<uint64_t, uint64_t> kept;
  const uint64_t end = memory + pages * kPage;
  for (const auto& [start, count] : page_allocations_) {
    const uint64_t stop = start + count * kPage;
    if (stop <= memory || start >= end) {
      kept[start] = count;
      continue;
    }
    if (start < memory) kept[start] = (memory - start) / kPage;
    if (stop > end) kept[end] = (stop - end) / kPage;
  }
  page_allocations_.swap(kept);
  set_range(memory, pages, EfiConventionalMemory);
  ++map_key_;
  return EFI_SUCCESS;
}

EFI_STATUS Memory::get_memory_map(UINTN* size, EFI_MEMORY_DESCRIPTOR* map, UINTN* key, UINTN* descriptor_size,
                                  UINT32* version) {
  if (size == nullptr) return EFI_INVALID_PARAMETER;
  const UINTN needed = regions_.size() * kDescriptorSize;
  if (descriptor_size != nullptr) *descriptor_size = kDescriptorSize;
  if (version != nullptr) *version = EFI_MEMORY_DESCRIPTOR_VERSION;
  if (*size < needed) {
    *size = needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  if (map == nullptr) return EFI_INVALID_PARAMETER;
  auto* out = reinterpret_cast<uint8_t*>(map);
  for (const MemoryRegion& r : regions_) {
    EFI_MEMORY_DESCRIPTOR d{};
    d.Type = r.type;
    d.PhysicalStart = r.start;
    d.VirtualStart = 0;
    d.NumberOfPages = r.pages;
    d.Attribute = r.attribute;
    std::memset(out, 0, kDescriptorSize);
    std::memcpy(out, &d, sizeof d);
    out += kDescriptorSize;
  }
  *size = needed;
  if (key != nullptr) *key = map_key_;
  return EFI_SUCCESS;
}

uint64_t Memory::conventional_pages() const {
  uint64_t pages = 0;
  for (const MemoryRegion& r : regions_)
    if (r.type == EfiConventionalMemory) pages += r.pages;
  return pages;
}

uint64_t Memory::outstanding_pool_bytes() const {
  uint64_t bytes = 0;
  for (const auto& [buffer, size] : pools_) bytes += size;
  return bytes;
}

uint64_t Memory::outstanding_pages() const {
  uint64_t pages = 0;
  for (const auto& [start, count] : page_allocations_) pages += count;
  return pages;
}

bool Memory::range_is(uint64_t start, uint64_t pages, EFI_MEMORY_TYPE type) const {
  if (start < base_ || start + pages * kPage > base_ + size_) return false;
  const uint64_t end = start + pages * kPage;
  for (const MemoryRegion& r : regions_) {
    const uint64_t r_end = r.start + r.pages * kPage;
    if (r_end <= start || r.start >= end) continue;
    if (r.type != type) return false;
  }
  return true;
}

void Memory::set_range(uint64_t start, uint64_t pages, EFI_MEMORY_TYPE type) {
  const uint64_t end = start + pages * kPage;
  std::vector<MemoryRegion> out;
  for (const MemoryRegion& r : regions_) {
    const uint64_t r_end = r.start + r.pages * kPage;
    if (r_end <= start || r.start >= end) {
      out.push_back(r);
      continue;
    }
    if (r.start < start) out.push_back({r.type, r.start, (start - r.start) / kPage, r.attribute});
    if (r_end > end) out.push_back({r.type, end, (r_end - end) / kPage, r.attribute});
  }
  out.push_back({type, start, pages, attribute_for(type)});
  std::sort(out.begin(), out.end(), [](const MemoryRegion& a, const MemoryRegion& b) { return a.start < b.start; });
  regions_.swap(out);
  merge();
}

void Memory::merge() {
  std::vector<MemoryRegion> out;
  for (const MemoryRegion& r : regions_) {
    if (!out.empty() && out.back().type == r.type && out.back().attribute == r.attribute &&
        out.back().start + out.back().pages * kPage == r.start) {
      out.back().pages += r.pages;
    } else {
      out.push_back(r);
    }
  }
  regions_.swap(out);
}

}  // namespace hostfw
