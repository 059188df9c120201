#include "tests/fuzz/fuzz_support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "app/application_plan.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "tests/support/test_machine.h"

namespace fuzz_support {

hostfw::Machine& machine() {
  static testing_support::TestMachine the_machine("", [](hostfw::Profile& profile) { profile.memory_mib = 64; });
  return *the_machine;
}

LeakCheck::LeakCheck(const char* what)
    : what_(what), pools_(machine().memory().outstanding_pools()), pages_(machine().memory().outstanding_pages()) {}

LeakCheck::~LeakCheck() {
  const size_t pools = machine().memory().outstanding_pools();
  const uint64_t pages = machine().memory().outstanding_pages();
  if (pools != pools_ || pages != pages_) {
    std::fprintf(stderr, "%s leaked: pools %zu -> %zu, pages %llu -> %llu\n", what_, pools_, pools,
                 static_cast<unsigned long long>(pages_), static_cast<unsigned long long>(pages));
    std::abort();
  }
}

FailingPool::FailingPool(uint8_t nth) {
  if (nth != 0) call_ = machine().memory().pool_allocations() + nth;
  machine().faults().fail_allocate_pool_call = call_;
}

FailingPool::~FailingPool() { machine().faults().fail_allocate_pool_call = 0; }

bool FailingPool::fired() const { return call_ != 0 && machine().memory().pool_allocations() >= call_; }

GuardedBytes::GuardedBytes() {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  data_ = (kMaxSize + page - 1) / page * page;
  mapped_ = data_ + page;
  void* at = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
  if (at == MAP_FAILED) {
    std::perror("fuzz: no memory below 4 GiB");
    std::abort();
  }
  base_ = static_cast<uint8_t*>(at);
  mprotect(base_ + data_, page, PROT_NONE);
}

GuardedBytes::~GuardedBytes() { munmap(base_, mapped_); }

const uint8_t* GuardedBytes::place(const uint8_t* bytes, size_t size, size_t length) {
  if (length > kMaxSize) length = kMaxSize;
  if (size > length) size = length;
  uint8_t* start = base_ + data_ - length;
  if (size > 0) std::memcpy(start, bytes, size);
  std::memset(start + size, 0, length - size);
  return start;
}

SmbiosInput TakeSmbiosInput(FuzzInput& in) {
  SmbiosInput smbios;
  smbios.declared_length = in.take<uint16_t>();
  smbios.declared_structures = in.take<uint16_t>();
  smbios.table = in.rest();
  return smbios;
}

SmbiosFirmware::SmbiosFirmware(const SmbiosInput& smbios, SmbiosEntryPoints kind) {
  static GuardedBytes table_memory;
  length_ = smbios.declared_length;
  table_ = table_memory.place(smbios.table.data(), smbios.table.size(), length_);
  std::memcpy(entry_point_, "_SM_", 4);
  std::memcpy(entry_point_ + 0x10, "_DMI_", 5);
  std::memcpy(entry_point_ + 0x16, &smbios.declared_length, 2);
  const uint32_t address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(table_));
  std::memcpy(entry_point_ + 0x18, &address, 4);
  std::memcpy(entry_point_ + 0x1C, &smbios.declared_structures, 2);
  std::memcpy(entry_point3_, "_SM3_", 5);
  const uint32_t maximum_size = smbios.declared_length;
  std::memcpy(entry_point3_ + 0x0C, &maximum_size, 4);
  const uint64_t address64 = reinterpret_cast<uintptr_t>(table_);
  std::memcpy(entry_point3_ + 0x10, &address64, 8);
  UINTN entries = 0;
  if (kind != SmbiosEntryPoints::k3) configuration_[entries++] = {SMBIOS_TABLE_GUID, entry_point_};
  if (kind != SmbiosEntryPoints::k2) configuration_[entries++] = {SMBIOS3_TABLE_GUID, entry_point3_};
  system_table_ = *machine().system_table();
  system_table_.NumberOfTableEntries = entries;
  system_table_.ConfigurationTable = configuration_;
}

CoreServices::CoreServices(EFI_SYSTEM_TABLE* system_table)
    : system_table_(system_table != nullptr ? system_table : machine().system_table()) {
  tarvik::gST = system_table_;
  for (UINTN i = 0; i < tarvik::ApplicationPlan.CoreServiceCount; ++i)
    tarvik::ApplicationPlan.CoreServices[i].Install(machine().image_handle(), system_table_);
}

CoreServices::~CoreServices() {
  if (tarvik::gDiagCommon != nullptr) {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
  }
  tarvik::gST = machine().system_table();
}

VOID* Located(EFI_GUID guid) {
  VOID* record = nullptr;
  return EFI_ERROR(machine().boot_services()->LocateProtocol(&guid, nullptr, &record)) ? nullptr : record;
}

std::vector<uint8_t> FuzzInput::take_bytes(size_t count) {
  const size_t n = count < size_ ? count : size_;
  std::vector<uint8_t> bytes(data_, data_ + n);
  data_ += n;
  size_ -= n;
  return bytes;
}

std::u16string FuzzInput::take_text(size_t count) {
  std::u16string text;
  for (size_t i = 0; i < count && size_ >= 2; ++i) {
    const char16_t c = take<char16_t>();
    if (c == 0) break;
    text.push_back(c);
  }
  return text;
}

}  // namespace fuzz_support
