// The SMBIOS tables as an application finds them: through the configuration
// table's SMBIOS entry, the 2.x entry point and the structure table it names.
#include "hostfw/smbios.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

uint16_t u16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t u32(const uint8_t* p) { return u16(p) | static_cast<uint32_t>(u16(p + 2)) << 16; }

uint8_t sum(const uint8_t* p, size_t n) {
  uint8_t s = 0;
  for (size_t i = 0; i < n; ++i) s = static_cast<uint8_t>(s + p[i]);
  return s;
}

// The entry point of the last configuration-table entry with the SMBIOS GUID.
const uint8_t* find_entry_point(const EFI_SYSTEM_TABLE* st) {
  const EFI_GUID smbios = SMBIOS_TABLE_GUID;
  const uint8_t* found = nullptr;
  for (UINTN i = 0; i < st->NumberOfTableEntries; ++i)
    if (st->ConfigurationTable[i].VendorGuid == smbios)
      found = static_cast<const uint8_t*>(st->ConfigurationTable[i].VendorTable);
  return found;
}

struct Structure {
  uint8_t type = 0;
  const uint8_t* at = nullptr;
  size_t size = 0;  // formatted area, strings and the closing NULs
  std::vector<std::string> strings;

  uint8_t byte(size_t offset) const { return at[offset]; }
  uint16_t word(size_t offset) const { return u16(at + offset); }
  // The string a string field names; "" for none.
  std::string text(size_t offset) const {
    const uint8_t n = at[offset];
    return n == 0 || n > strings.size() ? "" : strings[n - 1];
  }
};

struct Table {
  const uint8_t* entry = nullptr;
  std::vector<Structure> structures;
  size_t walked = 0;  // bytes the walk covered
};

// Walks the structure table, never reading beyond its stated length.
Table read_tables(const EFI_SYSTEM_TABLE* st) {
  Table t;
  t.entry = find_entry_point(st);
  if (t.entry == nullptr) {
    ADD_FAILURE() << "no SMBIOS entry in the configuration table";
    return t;
  }
  const auto* table = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(u32(t.entry + 0x18)));
  const size_t length = u16(t.entry + 0x16);
  const uint16_t count = u16(t.entry + 0x1C);
  size_t at = 0;
  for (uint16_t i = 0; i < count; ++i) {
    if (at + 4 > length || at + table[at + 1] > length) {
      ADD_FAILURE() << "structure " << i << " starts or ends beyond the table";
      break;
    }
    Structure s;
    s.type = table[at];
    s.at = table + at;
    // The string set: strings up to a NUL each, then one more NUL; with no
    // strings, two NULs.
    size_t p = at + table[at + 1];
    for (size_t start = p; p < length && table[p] != 0; start = ++p) {
      while (p < length && table[p] != 0) ++p;
      s.strings.emplace_back(reinterpret_cast<const char*>(table + start), p - start);
    }
    p += s.strings.empty() ? 2 : 1;
    if (p > length) {
      ADD_FAILURE() << "the strings of structure " << i << " run past the table";
      break;
    }
    s.size = p - at;
    EXPECT_EQ(table[p - 1] | table[p - 2], 0) << "structure " << i << " ends with two NULs";
    at = p;
    t.structures.push_back(s);
  }
  t.walked = at;
  return t;
}

std::vector<const Structure*> of_type(const Table& t, uint8_t type) {
  std::vector<const Structure*> out;
  for (const Structure& s : t.structures)
    if (s.type == type) out.push_back(&s);
  return out;
}

TEST(SmbiosTables, TheEntryPointIsPublishedWithValidChecksumsBelow4GiB) {
  TestMachine machine;
  const uint8_t* ep = find_entry_point(machine->system_table());
  ASSERT_NE(ep, nullptr);
  EXPECT_EQ(std::memcmp(ep, "_SM_", 4), 0);
  ASSERT_EQ(ep[5], 0x1F) << "entry point length";
  EXPECT_EQ(sum(ep, ep[5]), 0) << "entry point checksum";
  EXPECT_EQ(std::memcmp(ep + 0x10, "_DMI_", 5), 0);
  EXPECT_EQ(sum(ep + 0x10, 15), 0) << "intermediate checksum";
  EXPECT_EQ(ep[0x1E], (ep[6] << 4) | ep[7]) << "BCD revision agrees with the version";
  EXPECT_LT(reinterpret_cast<uintptr_t>(ep), uintptr_t{1} << 32);
  const uint32_t address = u32(ep + 0x18);
  EXPECT_LE(uint64_t{address} + u16(ep + 0x16), uint64_t{1} << 32);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(uintptr_t{address}), machine->smbios().table());
}

TEST(SmbiosTables, TheDefaultMachineIsDescribedByItsProfileInStructuresWalkedToTheEnd) {
  TestMachine machine;
  const hostfw::Profile& p = machine->profile();
  const Table t = read_tables(machine->system_table());
  ASSERT_NE(t.entry, nullptr);
  EXPECT_EQ(t.walked, u16(t.entry + 0x16)) << "the walk ends exactly at the table's length";
  ASSERT_EQ(t.structures.size(), u16(t.entry + 0x1C));
  std::vector<uint8_t> types;
  std::set<uint16_t> handles;
  size_t largest = 0;
  for (const Structure& s : t.structures) {
    types.push_back(s.type);
    handles.insert(s.word(2));
    largest = std::max(largest, s.size);
  }
  EXPECT_EQ(types, (std::vector<uint8_t>{0, 1, 4, 13, 16, 17, 17, 17, 17, 127}));
  EXPECT_EQ(handles.size(), t.structures.size()) << "every structure has its own handle";
  EXPECT_EQ(u16(t.entry + 0x08), largest) << "maximum structure size";
  EXPECT_EQ(t.structures.back().byte(1), 4) << "the end-of-table structure is a bare header";

  EXPECT_EQ(of_type(t, 0).at(0)->text(0x08), p.bios.release_date);
  const Structure& system = *of_type(t, 1).at(0);
  EXPECT_EQ(system.text(0x05), p.system.product);
  EXPECT_EQ(system.text(0x07), p.system.serial);
  // 6b0f3c2e-8d41-4a7e-9c55-1f2e3d4c5b6a: the first three fields little-endian.
  const uint8_t uuid[16] = {0x2E, 0x3C, 0x0F, 0x6B, 0x41, 0x8D, 0x7E, 0x4A,
                            0x9C, 0x55, 0x1F, 0x2E, 0x3D, 0x4C, 0x5B, 0x6A};
  EXPECT_EQ(std::memcmp(system.at + 0x08, uuid, 16), 0);

  const Structure& cpu = *of_type(t, 4).at(0);
  EXPECT_EQ(cpu.text(0x10), p.processors[0].version);
  EXPECT_EQ(cpu.byte(0x23), p.processors[0].core_count) << "core count";

  const Structure& language = *of_type(t, 13).at(0);
  EXPECT_EQ(language.byte(0x04), language.strings.size()) << "installable languages";
  EXPECT_EQ(language.strings, p.language.installable);
  EXPECT_EQ(language.text(0x15), p.language.installable.at(p.language.current)) << "current language";

  const Structure& array = *of_type(t, 16).at(0);
  EXPECT_EQ(array.word(0x0D), p.memory_modules.size()) << "number of memory devices";

  const auto modules = of_type(t, 17);
  ASSERT_EQ(modules.size(), p.memory_modules.size());
  for (size_t i = 0; i < modules.size(); ++i) {
    const Structure& m = *modules[i];
    const hostfw::MemoryModuleInfo& want = p.memory_modules[i];
    SCOPED_TRACE(want.locator);
    EXPECT_EQ(m.word(0x04), array.word(2)) << "belongs to the memory array";
    EXPECT_EQ(m.word(0x0C), want.size_mib) << "size in MiB";
    EXPECT_EQ(m.byte(0x12) == 0x02, want.size_mib == 0) << "an empty slot, and only one, has no memory type";
    EXPECT_EQ(m.text(0x10), want.locator);
    EXPECT_EQ(m.text(0x1A), want.part_number);
  }
}

TEST(SmbiosTables, LargeModulesUseTheExtendedSizeAndAbsentFieldsHaveNoString) {
  // No processor, no version, a module without a bank; the second language
  // is the current one.
  hostfw::Profile profile = hostfw::parse_profile(
      "[machine]\nname = Big\nmemory_mib = 64\n"
      "[bios]\nvendor = V\nversion = 1\n"
      "[system]\nmanufacturer = Técnica Ω\nproduct = P\nserial = SERIAL-0001\n"
      "[language]\ninstallable = en|US|iso8859-1, pt|BR|iso8859-1\ncurrent = pt|BR|iso8859-1\n"
      "[memory_module]\nlocator = A\nsize_mib = 32766\n"
      "[memory_module]\nlocator = B\nsize_mib = 32767\n"
      "[memory_module]\nlocator = C\nsize_mib = 32768\nbank = BANK 2\n"
      "[memory_module]\nlocator = D\nsize_mib = 262144\ntype = DDR5\nform_factor = SODIMM\n",
      "big.ini", "/nonexistent");
  TestMachine machine("", &profile);
  const Table t = read_tables(machine->system_table());
  ASSERT_NE(t.entry, nullptr);
  EXPECT_EQ(t.walked, u16(t.entry + 0x16));
  std::vector<uint8_t> types;
  for (const Structure& s : t.structures) types.push_back(s.type);
  EXPECT_EQ(types, (std::vector<uint8_t>{0, 1, 13, 16, 17, 17, 17, 17, 127}));

  const Structure& system = *of_type(t, 1).at(0);
  EXPECT_EQ(system.text(0x04), "T\xE9" "cnica ?") << "UTF-8 of the profile becomes Latin-1";
  EXPECT_EQ(system.byte(0x06), 0) << "no version: string number 0";
  EXPECT_EQ(system.text(0x07), "SERIAL-0001") << "later strings are numbered past the missing one";
  EXPECT_EQ(of_type(t, 0).at(0)->byte(0x08), 0) << "no release date";

  EXPECT_EQ(of_type(t, 13).at(0)->text(0x15), "pt|BR|iso8859-1");

  const auto modules = of_type(t, 17);
  ASSERT_EQ(modules.size(), 4u);
  EXPECT_EQ(modules[0]->word(0x0C), 32766) << "below 32 GiB - 1 MiB the size field holds it";
  EXPECT_EQ(modules[1]->word(0x0C), 0x7FFF) << "from 32 GiB - 1 MiB on, the extended size holds it";
  EXPECT_EQ(u32(modules[1]->at + 0x1C), 32767u);
  EXPECT_EQ(u32(modules[3]->at + 0x1C), 262144u);
  EXPECT_EQ(modules[3]->byte(0x12), 0x22) << "DDR5";
  EXPECT_EQ(modules[0]->byte(0x11), 0) << "no bank";
  EXPECT_EQ(modules[2]->text(0x11), "BANK 2");
  EXPECT_EQ(u32(of_type(t, 16).at(0)->at + 0x07), (32766u + 32767 + 32768 + 262144) * 1024);
}

}  // namespace
