#include "hostfw/smbios.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace hostfw {
namespace {

// One structure: its formatted area and its string set.
class Structure {
 public:
  Structure(uint8_t type, uint8_t length, uint16_t handle) : bytes_(length, 0) {
    bytes_[0] = type;
    bytes_[1] = length;
    put16(2, handle);
  }
  void put8(size_t at, uint8_t v) { bytes_[at] = v; }
  void put16(size_t at, uint16_t v) {
    bytes_[at] = static_cast<uint8_t>(v);
    bytes_[at + 1] = static_cast<uint8_t>(v >> 8);
  }
  void put32(size_t at, uint32_t v) {
    put16(at, static_cast<uint16_t>(v));
    put16(at + 2, static_cast<uint16_t>(v >> 16));
  }
  // Stores the number of a string, or 0 for an empty one (no string).
  void text(size_t at, const std::string& s) {
    if (s.empty()) return;
    strings_.push_back(s);
    bytes_[at] = static_cast<uint8_t>(strings_.size());
  }
  void append_to(std::vector<uint8_t>& out) const {
    out.insert(out.end(), bytes_.begin(), bytes_.end());
    for (const std::string& s : strings_) {
      out.insert(out.end(), s.begin(), s.end());
      out.push_back(0);
    }
    if (strings_.empty()) out.push_back(0);
    out.push_back(0);
  }
  size_t size() const {
    size_t n = bytes_.size() + 1;
    for (const std::string& s : strings_) n += s.size() + 1;
    return strings_.empty() ? n + 1 : n;
  }

 private:
  std::vector<uint8_t> bytes_;
  std::vector<std::string> strings_;
};

uint8_t checksum(const uint8_t* p, size_t n) {
  uint8_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + p[i]);
  return static_cast<uint8_t>(-sum);
}

std::vector<Structure> build_structures(const Profile& p) {
  std::vector<Structure> out;
  uint16_t handle = 0;

  Structure bios(0, 0x18, handle++);
  bios.text(4, p.bios.vendor);
  bios.text(5, p.bios.version);
  bios.put16(6, 0xF000);
  bios.text(8, p.bios.release_date);
  bios.put8(9, 0xFF);                // 16 MiB or more: see the extended size
  bios.put32(0x0A, 0x08 | 0x80 | 0x800);  // characteristics: PCI, boot from CD, EDD
  bios.put8(0x13, 0x0C);             // UEFI supported, virtual machine no; targeted distribution
  bios.put8(0x14, 2);
  bios.put8(0x15, 14);
  bios.put8(0x16, 0xFF);
  bios.put8(0x17, 0xFF);
  out.push_back(bios);

  Structure system(1, 0x1B, handle++);
  system.text(4, p.system.manufacturer);
  system.text(5, p.system.product);
  system.text(6, p.system.version);
  system.text(7, p.system.serial);
  for (int i = 0; i < 16; ++i) system.put8(8 + i, p.system.uuid[i]);
  system.put8(0x18, 6);  // woken by power switch
  system.text(0x19, p.system.sku);
  system.text(0x1A, p.system.family);
  out.push_back(system);

  for (const ProcessorInfo& cpu : p.processors) {
    Structure s(4, 0x2A, handle++);
    s.text(4, cpu.socket);
    s.put8(5, 3);     // central processor
    s.put8(6, 0xFE);  // family: see the second family field
    s.text(7, cpu.manufacturer);
    s.text(0x10, cpu.version);
    s.put8(0x11, 0x80 | 12);  // 1.2 V
    s.put16(0x12, cpu.external_clock_mhz);
    s.put16(0x14, cpu.max_speed_mhz);
    s.put16(0x16, cpu.current_speed_mhz);
    s.put8(0x18, 0x41);  // populated, enabled
    s.put8(0x19, 0x01);
    s.put16(0x1A, 0xFFFF);
    s.put16(0x1C, 0xFFFF);
    s.put16(0x1E, 0xFFFF);
    s.text(0x20, cpu.serial);
    s.text(0x22, cpu.part_number);
    s.put8(0x23, cpu.core_count);
    s.put8(0x24, cpu.core_count);
    s.put8(0x25, cpu.thread_count);
    s.put16(0x26, 0x04);  // 64-bit capable
    s.put16(0x28, 0x6B);  // "other" x86-64 family
    out.push_back(s);
  }

  if (!p.language.installable.empty()) {
    Structure s(13, 0x16, handle++);
    s.put8(4, static_cast<uint8_t>(p.language.installable.size()));
    s.put8(5, 0);  // long format: "en|US|iso8859-1"
    for (const std::string& language : p.language.installable) s.text(0x15, language);
    s.put8(0x15, static_cast<uint8_t>(p.language.current + 1));
    out.push_back(s);
  }

  const uint16_t array_handle = handle++;
  Structure array(16, 0x0F, array_handle);
  uint64_t total_kib = 0;
  for (const MemoryModuleInfo& m : p.memory_modules) total_kib += uint64_t{m.size_mib} * 1024;
  array.put8(4, 3);  // system board
  array.put8(5, 3);  // system memory
  array.put8(6, 3);  // no error correction
  array.put32(7, total_kib > 0x7FFFFFFF ? 0x80000000u : static_cast<uint32_t>(total_kib));
  array.put16(0x0B, 0xFFFE);
  array.put16(0x0D, static_cast<uint16_t>(p.memory_modules.size()));
  out.push_back(array);

  for (const MemoryModuleInfo& m : p.memory_modules) {
    Structure s(17, 0x28, handle++);
    s.put16(4, array_handle);
    s.put16(6, 0xFFFE);
    s.put16(8, 64);
    s.put16(0x0A, 64);
    if (m.size_mib < 0x7FFF) {
      s.put16(0x0C, static_cast<uint16_t>(m.size_mib));
    } else {
      s.put16(0x0C, 0x7FFF);
      s.put32(0x1C, m.size_mib);
    }
    s.put8(0x0E, m.form_factor);
    s.text(0x10, m.locator);
    s.text(0x11, m.bank);
    s.put8(0x12, m.memory_type);
    s.put16(0x13, 0x80);  // synchronous
    s.put16(0x15, m.speed_mts);
    s.text(0x17, m.manufacturer);
    s.text(0x18, m.serial);
    s.text(0x1A, m.part_number);
    s.put8(0x1B, 1);  // rank
    s.put16(0x20, m.speed_mts);
    s.put16(0x22, 1200);
    s.put16(0x24, 1200);
    s.put16(0x26, 1200);
    out.push_back(s);
  }

  out.emplace_back(127, 4, handle++);
  return out;
}

}  // namespace

SmbiosTables::SmbiosTables(const Profile& profile) {
  const std::vector<Structure> structures = build_structures(profile);
  std::vector<uint8_t> table;
  size_t largest = 0;
  for (const Structure& s : structures) {
    s.append_to(table);
    largest = std::max(largest, s.size());
  }
  if (table.size() > 0xFFFF) throw std::runtime_error("SMBIOS structure table too large");

  block_size_ = kTableOffset + table.size();
  void* at = mmap(nullptr, block_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
  if (at == MAP_FAILED) throw std::runtime_error("cannot place the SMBIOS tables below 4 GiB");
  block_ = static_cast<uint8_t*>(at);
  std::memcpy(block_ + kTableOffset, table.data(), table.size());
  table_length_ = table.size();
  structure_count_ = static_cast<uint16_t>(structures.size());

  uint8_t* ep = block_;
  std::memcpy(ep, "_SM_", 4);
  ep[5] = 0x1F;
  ep[6] = 2;
  ep[7] = 8;
  ep[8] = static_cast<uint8_t>(largest);
  ep[9] = static_cast<uint8_t>(largest >> 8);
  std::memcpy(ep + 0x10, "_DMI_", 5);
  ep[0x16] = static_cast<uint8_t>(table_length_);
  ep[0x17] = static_cast<uint8_t>(table_length_ >> 8);
  const uint32_t address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(block_ + kTableOffset));
  std::memcpy(ep + 0x18, &address, 4);
  ep[0x1C] = static_cast<uint8_t>(structure_count_);
  ep[0x1D] = static_cast<uint8_t>(structure_count_ >> 8);
  ep[0x1E] = 0x28;
  ep[0x15] = checksum(ep + 0x10, 15);
  ep[4] = checksum(ep, 0x1F);
}

SmbiosTables::~SmbiosTables() {
  if (block_ != nullptr) munmap(block_, block_size_);
}

}  // namespace hostfw
