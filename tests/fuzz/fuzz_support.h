// What the fuzz targets share: the one simulated machine of the process,
// the check that an input leaves no pool or page behind, firmware whose
// SMBIOS table is the input's, the application's core services, and a
// reader that takes typed values off the input bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "efi/efi.h"
#include "hostfw/machine.h"

namespace fuzz_support {

class FuzzInput;

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

// Bytes of firmware data at an address below 4 GiB (an SMBIOS entry point
// holds a 32-bit table address), placed so that the byte after the last one
// is on a page that cannot be read: a read past the end crashes.
class GuardedBytes {
 public:
  static constexpr size_t kMaxSize = 64 * 1024;
  GuardedBytes();
  ~GuardedBytes();
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  // Places `length` bytes (at most kMaxSize) to end right before the guard
  // page: the first `size` of `bytes`, then zeros when fewer are given.
  // Returns the first byte.
  const uint8_t* place(const uint8_t* bytes, size_t size, size_t length);

 private:
  uint8_t* base_ = nullptr;
  size_t mapped_ = 0;
  size_t data_ = 0;  // bytes before the guard page
};

// An SMBIOS structure table as firmware publishes it: the 32-bit entry
// point with the table's declared length and structure count, and the
// table's bytes.
struct SmbiosInput {
  uint16_t declared_length = 0;
  uint16_t declared_structures = 0;
  std::vector<uint8_t> table;
};

// The declared length, the structure count, then the table's bytes.
SmbiosInput TakeSmbiosInput(FuzzInput& in);

// Which entry points an SmbiosFirmware publishes for its table: the 2.x one
// (declared length and count), the 3.0 one (declared length as maximum
// size), or both.
enum class SmbiosEntryPoints : uint8_t { k2, k3, kBoth };

// A copy of the machine's system table whose configuration table holds only
// SMBIOS entry points for `smbios`. The table's bytes end right before an
// unreadable page (GuardedBytes), at the declared length: the bytes given
// are cut there, or zero-filled up to it. One at a time.
class SmbiosFirmware {
 public:
  explicit SmbiosFirmware(const SmbiosInput& smbios, SmbiosEntryPoints kind = SmbiosEntryPoints::k2);
  SmbiosFirmware(const SmbiosFirmware&) = delete;
  SmbiosFirmware& operator=(const SmbiosFirmware&) = delete;

  EFI_SYSTEM_TABLE* system_table() { return &system_table_; }
  const uint8_t* table() const { return table_; }
  size_t length() const { return length_; }

 private:
  uint8_t entry_point_[32] = {};
  uint8_t entry_point3_[24] = {};
  EFI_CONFIGURATION_TABLE configuration_[2] = {};
  EFI_SYSTEM_TABLE system_table_ = {};
  const uint8_t* table_ = nullptr;
  size_t length_ = 0;
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
