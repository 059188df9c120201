// SMBIOS tables built from the machine profile: a 2.x entry point and a
// structure table of types 0, 1, 4, 13, 16, 17 and 127, as a PC's firmware
// publishes them in the configuration table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hostfw/profile.h"

namespace hostfw {

class SmbiosTables {
 public:
  explicit SmbiosTables(const Profile& profile);
  ~SmbiosTables();
  SmbiosTables(const SmbiosTables&) = delete;
  SmbiosTables& operator=(const SmbiosTables&) = delete;

  // The "_SM_" entry point; it and the table lie below 4 GiB, since the
  // entry point holds the table's address in 32 bits.
  void* entry_point() const { return block_; }
  const uint8_t* table() const { return block_ + kTableOffset; }
  size_t table_length() const { return table_length_; }
  uint16_t structure_count() const { return structure_count_; }

 private:
  static constexpr size_t kTableOffset = 32;
  uint8_t* block_ = nullptr;
  size_t block_size_ = 0;
  size_t table_length_ = 0;
  uint16_t structure_count_ = 0;
};

}  // namespace hostfw
