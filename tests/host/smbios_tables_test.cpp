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

struct Structure {
  const uint8_t* at = nullptr;
  size_t size = 0;  // formatted area, strings and the closing NULs
  std::vector<std::string> strings;

  uint8_t type() const { return at[0]; }
  uint16_t word(size_t offset) const { return u16(at + offset); }
  // The string a string field names; "" for none.
  std::string text(size_t offset) const {
    const uint8_t n = at[offset];
    return n == 0 || n > strings.size() ? "" : strings[n - 1];
  }
};

// The entry point of the last configuration-table entry with the SMBIOS GUID,
// and the structures its table holds, walked without reading past the
// table's stated length.
struct Tables {
  explicit Tables(const EFI_SYSTEM_TABLE* st) {
    const EFI_GUID smbios = SMBIOS_TABLE_GUID;
    for (UINTN i = 0; i < st->NumberOfTableEntries; ++i)
      if (st->ConfigurationTable[i].VendorGuid == smbios)
        entry = static_cast<const uint8_t*>(st->ConfigurationTable[i].VendorTable);
    if (entry == nullptr) return;
    const auto* table = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(u32(entry + 0x18)));
    const size_t length = u16(entry + 0x16);
    for (uint16_t i = 0; i < u16(entry + 0x1C); ++i) {
      if (walked + 4 > length || walked + table[walked + 1] > length) {
        ADD_FAILURE() << "structure " << i << " starts or ends beyond the table";
        return;
      }
      Structure s;
      s.at = table + walked;
      // Strings up to a NUL each, then one more NUL; with no strings, two NULs.
      size_t p = walked + table[walked + 1];
      for (size_t start = p; p < length && table[p] != 0; start = ++p) {
        while (p < length && table[p] != 0) ++p;
        s.strings.emplace_back(reinterpret_cast<const char*>(table + start), p - start);
      }
      p += s.strings.empty() ? 2 : 1;
      if (p > length) {
        ADD_FAILURE() << "the strings of structure " << i << " run past the table";
        return;
      }
      EXPECT_EQ(table[p - 1] | table[p - 2], 0) << "structure " << i << " ends with two NULs";
      s.size = p - walked;
      walked = p;
      structures.push_back(s);
    }
  }
  std::vector<const Structure*> of_type(uint8_t type) const {
    std::vector<const Structure*> out;
    for (const Structure& s : structures)
      if (s.type() == type) out.push_back(&s);
    return out;
  }
  std::vector<uint8_t> types() const {
    std::vector<uint8_t> out;
    for (const Structure& s : structures) out.push_back(s.type());
    return out;
  }

  const uint8_t* entry = nullptr;
  std::vector<Structure> structures;
  size_t walked = 0;  // bytes the walk covered
};

TEST(SmbiosTables, TheProfileIsPublishedInStructuresThatAreFoundCheckedAndLinked) {
  // No processor, no version; the second language is the current one; the
  // last module slot is empty.
  hostfw::Profile profile = hostfw::parse_profile(
      "[machine]\nname = Big\nmemory_mib = 64\n"
      "[bios]\nvendor = V\nversion = 1\n"
      "[system]\nmanufacturer = Técnica Ω\nproduct = P\nserial = SERIAL-0001\n"
      "uuid = 6b0f3c2e-8d41-4a7e-9c55-1f2e3d4c5b6a\n"
      "[language]\ninstallable = en|US|iso8859-1, pt|BR|iso8859-1\ncurrent = pt|BR|iso8859-1\n"
      "[memory_module]\nlocator = A\nsize_mib = 32766\n"
      "[memory_module]\nlocator = B\nsize_mib = 32767\n"
      "[memory_module]\nlocator = C\nsize_mib = 262144\nbank = BANK 2\n"
      "[memory_module]\nlocator = D\nsize_mib = 0\n",
      "big.ini", "/nonexistent");
  TestMachine machine("", &profile);
  const Tables t(machine->system_table());
  const uint8_t* ep = t.entry;
  ASSERT_NE(ep, nullptr);
  EXPECT_EQ(std::memcmp(ep, "_SM_", 4), 0);
  ASSERT_EQ(ep[5], 0x1F) << "entry point length";
  EXPECT_EQ(sum(ep, ep[5]), 0) << "entry point checksum";
  EXPECT_EQ(std::memcmp(ep + 0x10, "_DMI_", 5), 0);
  EXPECT_EQ(sum(ep + 0x10, 15), 0) << "intermediate checksum";
  EXPECT_EQ(ep[0x1E], (ep[6] << 4) | ep[7]) << "BCD revision agrees with the version";
  EXPECT_LT(reinterpret_cast<uintptr_t>(ep), uintptr_t{1} << 32);
  EXPECT_LE(uint64_t{u32(ep + 0x18)} + u16(ep + 0x16), uint64_t{1} << 32);

  EXPECT_EQ(t.walked, u16(ep + 0x16)) << "the walk ends exactly at the table's length";
  EXPECT_EQ(t.types(), (std::vector<uint8_t>{0, 1, 13, 16, 17, 17, 17, 17, 127}));
  std::set<uint16_t> handles;
  size_t largest = 0;
  for (const Structure& s : t.structures) {
    handles.insert(s.word(2));
    largest = std::max(largest, s.size);
  }
  EXPECT_EQ(handles.size(), t.structures.size()) << "every structure has its own handle";
  EXPECT_EQ(u16(ep + 0x08), largest) << "maximum structure size";
  EXPECT_EQ(t.structures.back().at[1], 4) << "the end-of-table structure is a bare header";

  const Structure& system = *t.of_type(1).at(0);
  EXPECT_EQ(system.text(0x04), "T\xE9" "cnica ?") << "UTF-8 of the profile becomes Latin-1";
  EXPECT_EQ(system.at[0x06], 0) << "no version: string number 0";
  EXPECT_EQ(system.text(0x07), "SERIAL-0001") << "later strings are numbered past the missing one";
  const uint8_t uuid[16] = {0x2E, 0x3C, 0x0F, 0x6B, 0x41, 0x8D, 0x7E, 0x4A,  // the first three fields
                            0x9C, 0x55, 0x1F, 0x2E, 0x3D, 0x4C, 0x5B, 0x6A};  // little-endian
  EXPECT_EQ(std::memcmp(system.at + 0x08, uuid, 16), 0);
  EXPECT_EQ(t.of_type(0).at(0)->at[0x08], 0) << "no release date";
  const Structure& language = *t.of_type(13).at(0);
  EXPECT_EQ(language.at[0x04], 2) << "installable languages";
  EXPECT_EQ(language.strings, profile.language.installable);
  EXPECT_EQ(language.text(0x15), "pt|BR|iso8859-1") << "the current language";

  const Structure& array = *t.of_type(16).at(0);
  EXPECT_EQ(u32(array.at + 0x07), (32766u + 32767 + 262144) * 1024) << "capacity in KiB";
  const auto modules = t.of_type(17);
  ASSERT_EQ(modules.size(), 4u);
  EXPECT_EQ(array.word(0x0D), modules.size()) << "number of memory devices";
  for (const Structure* m : modules) EXPECT_EQ(m->word(0x04), array.word(2)) << "belongs to the memory array";
  EXPECT_EQ(modules[0]->word(0x0C), 32766) << "below 32 GiB - 1 MiB the size field holds it";
  EXPECT_EQ(modules[1]->word(0x0C), 0x7FFF) << "from 32 GiB - 1 MiB on, the extended size holds it";
  EXPECT_EQ(u32(modules[1]->at + 0x1C), 32767u);
  EXPECT_EQ(u32(modules[2]->at + 0x1C), 262144u);
  EXPECT_EQ(modules[2]->text(0x11), "BANK 2") << "the only module with a bank";
  EXPECT_EQ(modules[3]->word(0x0C) | modules[3]->at[0x12] << 16, 0x02 << 16) << "an empty slot: no size, no type";
  EXPECT_NE(modules[2]->at[0x12], 0x02);
}

}  // namespace
