// The SMBIOS tables as an application finds them: through the configuration
// table's SMBIOS entry, the 2.x entry point and the structure table it names,
// read with the application's own SMBIOS service.
#include "hostfw/smbios.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "core/diag_common.h"
#include "sysinfo/smbios_protocol.h"
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

// The SMBIOS entry point of the configuration table, or null.
const uint8_t* entry_point(const EFI_SYSTEM_TABLE* st) {
  const EFI_GUID smbios_guid = SMBIOS_TABLE_GUID;
  for (UINTN i = 0; i < st->NumberOfTableEntries; ++i)
    if (st->ConfigurationTable[i].VendorGuid == smbios_guid)
      return static_cast<const uint8_t*>(st->ConfigurationTable[i].VendorTable);
  return nullptr;
}

// What the screens and the memory module's tests do not show: strings that
// are not Latin-1 or missing, the UUID's byte order, the current language,
// modules too large for the size field, banks and empty slots.
TEST(SmbiosTables, TheProfileIsPublishedInStructuresThatAreFoundAndChecked) {
  hostfw::Profile profile = hostfw::parse_profile(
      "[machine]\nname = Big\nmemory_mib = 64\n"
      "[bios]\nvendor = V\nversion = 1\n"
      "[system]\nmanufacturer = Técnica Ω\nproduct = P\nserial = SERIAL-0001\n"
      "uuid = 6b0f3c2e-8d41-4a7e-9c55-1f2e3d4c5b6a\n"
      "[language]\ninstallable = en|US|iso8859-1, pt|BR|iso8859-1\ncurrent = pt|BR|iso8859-1\n"
      "[memory_module]\nlocator = B\nsize_mib = 32767\n"
      "[memory_module]\nlocator = C\nsize_mib = 262144\nbank = BANK 2\n"
      "[memory_module]\nlocator = D\nsize_mib = 0\n",
      "big.ini", "/nonexistent");
  TestMachine machine("", &profile);
  const uint8_t* ep = entry_point(machine->system_table());
  ASSERT_NE(ep, nullptr);
  EXPECT_EQ(std::memcmp(ep, "_SM_", 4) | std::memcmp(ep + 0x10, "_DMI_", 5), 0);
  ASSERT_EQ(ep[5], 0x1F) << "entry point length";
  EXPECT_EQ(sum(ep, ep[5]) | sum(ep + 0x10, 15), 0) << "entry point and intermediate checksums";

  ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  ASSERT_EQ(tarvik::InstallSmBios(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  EFI_GUID guid = tarvik::SmBiosProtocolGuid;
  tarvik::SmBiosProtocol* smbios = nullptr;
  ASSERT_EQ(tarvik::gBS->LocateProtocol(&guid, nullptr, reinterpret_cast<VOID**>(&smbios)), EFI_SUCCESS);
  const auto find = [&](uint8_t type, uint32_t instance) {
    VOID* record = nullptr;
    smbios->GetSmbiosStructure(type, &record, instance);
    return static_cast<const uint8_t*>(record);
  };
  const auto text = [&](const uint8_t* record, size_t offset) {
    CHAR16* wide = nullptr;
    EXPECT_EQ(smbios->GetSmbiosString(record, record[offset], &wide), EFI_SUCCESS);
    const std::u16string out = wide;
    tarvik::gBS->FreePool(wide);
    return out;
  };

  const uint8_t* system = find(1, 0);
  ASSERT_NE(system, nullptr);
  EXPECT_EQ(text(system, 0x04), u"T\u00E9cnica ?") << "UTF-8 of the profile becomes Latin-1";
  EXPECT_EQ(system[0x06], 0) << "no version: string number 0";
  EXPECT_EQ(text(system, 0x07), u"SERIAL-0001") << "later strings are numbered past the missing one";
  const uint8_t uuid[16] = {0x2E, 0x3C, 0x0F, 0x6B, 0x41, 0x8D, 0x7E, 0x4A,  // the first three fields
                            0x9C, 0x55, 0x1F, 0x2E, 0x3D, 0x4C, 0x5B, 0x6A};  // little-endian
  EXPECT_EQ(std::memcmp(system + 0x08, uuid, 16), 0);
  EXPECT_EQ(text(find(13, 0), 0x15), u"pt|BR|iso8859-1") << "the current language";

  const uint8_t* big = find(17, 0);
  const uint8_t* banked = find(17, 1);
  const uint8_t* empty = find(17, 2);
  ASSERT_TRUE(big && banked && empty);
  EXPECT_EQ(u16(big + 0x0C), 0x7FFF) << "from 32 GiB - 1 MiB on, the extended size holds it";
  EXPECT_EQ(u32(big + 0x1C), 32767u);
  EXPECT_EQ(text(banked, 0x11), u"BANK 2") << "the only module with a bank";
  EXPECT_EQ(u16(empty + 0x0C) | empty[0x12] << 16, 0x02 << 16) << "an empty slot: no size, no type";
  tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
  tarvik::UninstallDiagCommon();
}

// The entry points each profile value publishes, below 4 GiB even beside
// memory of 1 GiB and more (which covers the range MAP_32BIT takes from);
// the 3.0 one names the same table, with the table's length as maximum size.
TEST(SmbiosTables, TheEntryPointsAreThoseTheProfileNamesAndStayBelow4GiB) {
  for (const auto& [value, mib, has2, has3] :
       {std::tuple{"2", "1024", true, false}, {"3", "64", false, true}, {"both", "65536", true, true}}) {
    hostfw::Profile profile = hostfw::parse_profile(std::string("[machine]\nname = M\nmemory_mib = ") + mib +
                                                        "\nsmbios_entry_point = " + value + "\n",
                                                    "m.ini", "/nonexistent");
    TestMachine machine("", &profile);
    const auto* ep2 = static_cast<const uint8_t*>(machine->smbios().entry_point());
    const auto* ep3 = static_cast<const uint8_t*>(machine->smbios().entry_point3());
    EXPECT_EQ(ep2 == entry_point(machine->system_table()) && ep2 != nullptr, has2) << value;
    ASSERT_EQ(ep3 != nullptr, has3) << value;
    if (ep2 != nullptr) {
      EXPECT_LT(reinterpret_cast<uintptr_t>(ep2), uintptr_t{1} << 32) << mib;
      EXPECT_EQ(reinterpret_cast<const uint8_t*>(uintptr_t{u32(ep2 + 0x18)}), machine->smbios().table()) << mib;
    }
    if (ep3 == nullptr) continue;
    EXPECT_EQ(std::memcmp(ep3, "_SM3_", 5) | (ep3[6] ^ 0x18) | (ep3[7] ^ 3) | sum(ep3, 0x18), 0);
    uint64_t address = 0;
    std::memcpy(&address, ep3 + 0x10, 8);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(address), machine->smbios().table());
    EXPECT_EQ(u32(ep3 + 0x0C), machine->smbios().table_length());
  }
}

}  // namespace
