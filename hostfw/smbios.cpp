#include "hostfw/smbios.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace hostfw {
namespace {

// SMBIOS strings are 8-bit and read as Latin-1, while profiles are UTF-8:
// characters up to U+00FF become their byte, others '?'. Bytes that are not
// UTF-8 are kept as they are, so a profile written in Latin-1 works too.
std::string latin1(const std::string& utf8) {
  std::string out;
  for (size_t i = 0; i < utf8.size();) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(utf8[k]); };
    const unsigned char c = byte(i);
    size_t length = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 1;
    if (c >= 0xF5) length = 1;
    bool sequence = length > 1 && i + length <= utf8.size();
    for (size_t k = 1; sequence && k < length; ++k) sequence = (byte(i + k) & 0xC0) == 0x80;
    if (!sequence) {
      out.push_back(static_cast<char>(c));
      ++i;
      continue;
    }
    char32_t code = c & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) code = code << 6 | (byte(i + k) & 0x3F);
    out.push_back(code <= 0xFF ? static_cast<char>(code) : '?');
    i += length;
  }
  return out;
}

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
    strings_.push_back(latin1(s));
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

// The nominal voltage of a memory type in mV; 0 for unknown.
uint16_t module_voltage(uint8_t memory_type) {
  switch (memory_type) {
    case 0x12: return 2500;  // DDR
    case 0x13: return 1800;  // DDR2
    case 0x18: return 1500;  // DDR3
    case 0x1A: return 1200;  // DDR4
    case 0x1D: return 1200;  // LPDDR3
    case 0x1E: return 1100;  // LPDDR4
    case 0x22: return 1100;  // DDR5
    case 0x23: return 1050;  // LPDDR5
    default: return 0;
  }
}

std::vector<Structure> build_structures(const Profile& p) {
  std::vector<Structure> out;
  uint16_t handle = 0;

  Structure bios(0, 0x18, handle++);
  bios.text(4, p.bios.vendor);
  bios.text(5, p.bios.version);
  bios.put16(6, 0xF000);  // starting segment
  bios.text(8, p.bios.release_date);
  bios.put8(9, 0xFF);     // ROM size 64 KiB x 256 = 16 MiB
  // Characteristics: PCI, upgradeable (flash), boot from CD, selectable
  // boot, EDD.
  bios.put32(0x0A, 1u << 7 | 1u << 11 | 1u << 15 | 1u << 16 | 1u << 19);
  bios.put8(0x12, 0x03);  // ACPI, USB legacy
  bios.put8(0x13, 0x0D);  // BIOS boot specification, targeted content distribution, UEFI
  bios.put8(0x14, 0xFF);  // no system BIOS release numbers
  bios.put8(0x15, 0xFF);
  bios.put8(0x16, 0xFF);  // no embedded controller firmware
  bios.put8(0x17, 0xFF);
  out.push_back(bios);

  Structure system(1, 0x1B, handle++);
  system.text(4, p.system.manufacturer);
  system.text(5, p.system.product);
  system.text(6, p.system.version);
  system.text(7, p.system.serial);
  // The UUID as SMBIOS 2.6 and later store it: the first three fields
  // (4, 2 and 2 bytes) little-endian, the rest in the order written.
  static constexpr int kUuidOrder[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  for (int i = 0; i < 16; ++i) system.put8(8 + i, p.system.uuid[kUuidOrder[i]]);
  system.put8(0x18, 6);  // woken by power switch
  system.text(0x19, p.system.sku);
  system.text(0x1A, p.system.family);
  out.push_back(system);

  for (const ProcessorInfo& cpu : p.processors) {
    Structure s(4, 0x2A, handle++);
    s.text(4, cpu.socket);
    s.put8(5, 3);     // central processor
    s.put8(6, 0x01);  // family: other
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
    // Characteristics: 64-bit capable, multi-core, hardware threads.
    s.put16(0x26, static_cast<uint16_t>(0x04 | (cpu.core_count > 1 ? 0x08 : 0) |
                                        (cpu.thread_count > cpu.core_count ? 0x10 : 0)));
    s.put16(0x28, 0x01);  // second family field: the same
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
  Structure array(16, 0x17, array_handle);
  uint64_t total_kib = 0;
  for (const MemoryModuleInfo& m : p.memory_modules) total_kib += uint64_t{m.size_mib} * 1024;
  array.put8(4, 3);  // system board
  array.put8(5, 3);  // system memory
  array.put8(6, 3);  // no error correction
  if (total_kib < 0x80000000) {
    array.put32(7, static_cast<uint32_t>(total_kib));
  } else {  // 2 TiB or more: in bytes, in the extended maximum capacity
    array.put32(7, 0x80000000u);
    array.put32(0x0F, static_cast<uint32_t>(total_kib * 1024));
    array.put32(0x13, static_cast<uint32_t>(total_kib * 1024 >> 32));
  }
  array.put16(0x0B, 0xFFFE);  // no error information
  array.put16(0x0D, static_cast<uint16_t>(p.memory_modules.size()));
  out.push_back(array);

  for (const MemoryModuleInfo& m : p.memory_modules) {
    // An empty slot has size 0 and says nothing of a type or speed.
    const bool empty = m.size_mib == 0;
    const uint8_t memory_type = empty ? 0x02 : m.memory_type;
    const uint16_t speed = empty ? 0 : m.speed_mts;
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
    s.put8(0x12, memory_type);
    s.put16(0x13, empty ? 0x04 : 0x80);  // unknown, or synchronous
    s.put16(0x15, speed);
    s.text(0x17, m.manufacturer);
    s.text(0x18, m.serial);
    s.text(0x1A, m.part_number);
    s.put8(0x1B, empty ? 0 : 1);  // rank
    s.put16(0x20, speed);  // configured speed
    const uint16_t millivolts = module_voltage(memory_type);
    s.put16(0x22, millivolts);  // minimum, maximum and configured voltage
    s.put16(0x24, millivolts);
    s.put16(0x26, millivolts);
    out.push_back(s);
  }

  out.emplace_back(127, 4, handle++);
  return out;
}

// Memory the 32-bit table address of the entry point can name. MAP_32BIT
// looks between 1 and 2 GiB only, which a simulated memory of 1 GiB or more
// fills; then any free place below 4 GiB serves.
void* below_4gib(size_t bytes) {
  void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
  if (at != MAP_FAILED) return at;
  constexpr uint64_t kStep = 0x10000000;  // 256 MiB
  for (uint64_t hint = kStep; hint + bytes <= (1ull << 32); hint += kStep) {
    at = mmap(reinterpret_cast<void*>(hint), bytes, PROT_READ | PROT_WRITE,
              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (at == reinterpret_cast<void*>(hint)) return at;
    if (at != MAP_FAILED) munmap(at, bytes);  // a kernel that took the address as a hint only
  }
  return nullptr;
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
  void* at = below_4gib(block_size_);
  if (at == nullptr) throw std::runtime_error("cannot place the SMBIOS tables below 4 GiB");
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

  // The 3.0 entry point counts no structures; its maximum size is the
  // table's length here, the end-of-table structure closing it.
  uint8_t* ep3 = block_ + kEntryPoint3Offset;
  std::memcpy(ep3, "_SM3_", 5);
  ep3[6] = 0x18;
  ep3[7] = 3;
  ep3[8] = 2;
  ep3[0x0A] = 1;  // entry point revision: 3.0
  const uint32_t maximum_size = static_cast<uint32_t>(table_length_);
  std::memcpy(ep3 + 0x0C, &maximum_size, 4);
  const uint64_t address64 = reinterpret_cast<uintptr_t>(block_ + kTableOffset);
  std::memcpy(ep3 + 0x10, &address64, 8);
  ep3[5] = checksum(ep3, 0x18);
  has_2_ = profile.smbios_entry_points != SmbiosEntryPoints::k3;
  has_3_ = profile.smbios_entry_points != SmbiosEntryPoints::k2;
  // Nothing writes to the tables once they are published; an application
  // that tries faults at once instead of corrupting them.
  mprotect(block_, block_size_, PROT_READ);
}

SmbiosTables::~SmbiosTables() {
  if (block_ != nullptr) munmap(block_, block_size_);
}

}  // namespace hostfw
