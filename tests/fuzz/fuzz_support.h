// What the fuzz targets share: the one simulated machine of the process,
// the check that an input leaves no pool or page behind, the application's
// core services, and a reader that takes typed values off the input bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "efi/efi.h"
#include "hostfw/machine.h"

namespace fuzz_support {

// The process's simulated machine (the default profile with 64 MiB of
// memory, virtual clock, no terminal), built on first use. The
// application's firmware globals (gST, gBS, ...) point at it.
hostfw::Machine& machine();

// Aborts, naming `what`, when the pools or pages outstanding at its end
// differ from those at its start: an input made the code under test leak.
class LeakCheck {
 public:
  explicit LeakCheck(const char* what);
  ~LeakCheck();
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;

 private:
  const char* what_;
  size_t pools_;
  uint64_t pages_;
};

// Firmware short of memory: the `nth` pool allocation from now on fails
// (none for 0) while this lives, so a target reaches the code's paths for a
// failed allocation, and the leak check sees what they leave behind.
class FailingPool {
 public:
  explicit FailingPool(uint8_t nth);
  ~FailingPool();
  FailingPool(const FailingPool&) = delete;
  FailingPool& operator=(const FailingPool&) = delete;

  // Whether the allocation to fail was asked for: a failure seen since is
  // the code's answer to it.
  bool fired() const;

 private:
  uint64_t call_ = 0;
};

// The application's core services installed on `system_table` (the
// machine's own when null) in start-up's order, every one tried: a failure
// is the code's answer to the input, not an error. Destroyed, they are all
// removed and gST points at the machine's own table again.
class CoreServices {
 public:
  explicit CoreServices(EFI_SYSTEM_TABLE* system_table = nullptr);
  ~CoreServices();
  CoreServices(const CoreServices&) = delete;
  CoreServices& operator=(const CoreServices&) = delete;

  EFI_SYSTEM_TABLE* system_table() { return system_table_; }

 private:
  EFI_SYSTEM_TABLE* system_table_;
};

// The record of an installed service, or null.
VOID* Located(EFI_GUID guid);

// Takes values off the front of the input; past its end every value is 0
// and every byte run empty, so a target never reads beyond the input.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  template <typename T>
  T take() {
    T value{};
    const size_t n = size_ < sizeof(T) ? size_ : sizeof(T);
    std::memcpy(&value, data_, n);
    data_ += n;
    size_ -= n;
    return value;
  }
  // Up to `count` bytes.
  std::vector<uint8_t> take_bytes(size_t count);
  // UTF-16 text of up to `count` characters (two bytes each), no NUL in it:
  // what a NUL would end is cut there, as the application would read it.
  std::u16string take_text(size_t count);
  std::vector<uint8_t> rest() { return take_bytes(size_); }
  size_t remaining() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace fuzz_support
