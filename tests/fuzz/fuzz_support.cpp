#include "tests/fuzz/fuzz_support.h"

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
