// SMBIOS tables built from the machine profile: a structure table of types
// 0, 1, 4, 13, 16, 17 and 127 and the entry points the profile asks for (the
// 32-bit 2.x one, the 64-bit 3.0 one, or both), as a PC's firmware publishes
// them in the configuration table.
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

  // The "_SM_" entry point, or null when the profile has none; it and the
  // table lie below 4 GiB, since it holds the table's address in 32 bits.
  void* entry_point() const { return has_2_ ? block_ : nullptr; }
  // The "_SM3_" entry point, or null when the profile has none.
  void* entry_point3() const { return has_3_ ? block_ + kEntryPoint3Offset : nullptr; }
  const uint8_t* table() const { return block_ + kTableOffset; }
  size_t table_length() const { return table_length_; }
  uint16_t structure_count() const { return structure_count_; }

 private:
  static constexpr size_t kEntryPoint3Offset = 32;
  static constexpr size_t kTableOffset = 64;
  bool has_2_ = true;
  bool has_3_ = true;
  uint8_t* block_ = nullptr;
  size_t block_size_ = 0;
  size_t table_length_ = 0;
  uint16_t structure_count_ = 0;
};

}  // namespace hostfw
