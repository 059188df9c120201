#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "core/diag_common.h"
#include "core/locate.h"
#include "core/protocol_registry.h"
#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "sysinfo/smbios_structures.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using Bytes = std::vector<uint8_t>;

// One SMBIOS structure: type, formatted area of `length` bytes (handle
// zero), then the strings and the closing NUL.
Bytes structure(uint8_t type, uint8_t length, std::vector<std::string> strings, Bytes formatted = {}) {
  Bytes s(length, 0);
  s[0] = type;
  s[1] = length;
  for (size_t i = 0; i < formatted.size() && 4 + i < length; ++i) s[4 + i] = formatted[i];
  for (const std::string& text : strings) {
    s.insert(s.end(), text.begin(), text.end());
    s.push_back(0);
  }
  if (strings.empty()) s.push_back(0);
  s.push_back(0);
  return s;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A structure table below 4 GiB whose last byte sits right before a page
// that cannot be read, so a walk that reads past the table's length crashes.
class GuardedTable {
 public:
  explicit GuardedTable(const Bytes& bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), data_pages = (bytes.size() + page - 1) / page + 1;
    size_ = (data_pages + 1) * page;
    base_ = static_cast<uint8_t*>(
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0));
    EXPECT_NE(base_, MAP_FAILED);
    mprotect(base_ + data_pages * page, page, PROT_NONE);
    start_ = base_ + data_pages * page - bytes.size();
    std::memcpy(start_, bytes.data(), bytes.size());
    length_ = bytes.size();
  }
  ~GuardedTable() { munmap(base_, size_); }
  const uint8_t* start() const { return start_; }
  size_t length() const { return length_; }

 private:
  uint8_t* base_ = nullptr;
  uint8_t* start_ = nullptr;
  size_t size_ = 0, length_ = 0;
};

class Smbios : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  }
  void TearDown() override {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }

  // A configuration-table entry whose SMBIOS entry point gives the table's
  // address and length: a 2.x one with `count` structures, a 3.0 one (no
  // count) when `count` is 0.
  EFI_CONFIGURATION_TABLE entry(const GuardedTable& table, uint16_t count) {
    std::array<uint8_t, 32>& point = entry_points_.emplace_back();
    const uint64_t address = reinterpret_cast<uintptr_t>(table.start());
    const uint32_t length = static_cast<uint32_t>(table.length());
    if (count == 0) {
      std::memcpy(point.data(), "_SM3_", 5);
      std::memcpy(point.data() + 0x0C, &length, 4);
      std::memcpy(point.data() + 0x10, &address, 8);
      return {SMBIOS3_TABLE_GUID, point.data()};
    }
    std::memcpy(point.data(), "_SM_", 4);
    std::memcpy(point.data() + 0x16, &length, 2);
    std::memcpy(point.data() + 0x18, &address, 4);  // the table lies below 4 GiB
    std::memcpy(point.data() + 0x1C, &count, 2);
    return {SMBIOS_TABLE_GUID, point.data()};
  }

  // Installs the service on a copy of the machine's system table whose
  // configuration table holds `entries` only.
  EFI_STATUS install_with(std::vector<EFI_CONFIGURATION_TABLE> entries) {
    configuration_ = std::move(entries);
    system_table_ = *machine->system_table();
    system_table_.NumberOfTableEntries = configuration_.size();
    system_table_.ConfigurationTable = configuration_.data();
    const EFI_STATUS status = tarvik::InstallSmBios(machine->image_handle(), &system_table_);
    service = tarvik::LocateService<tarvik::SmBiosProtocol>(tarvik::SmBiosProtocolGuid);
    return status;
  }

  EFI_STATUS install_on(const GuardedTable& table, uint16_t count) { return install_with({entry(table, count)}); }

  const uint8_t* find(uint8_t type, uint32_t instance) {
    VOID* record = reinterpret_cast<VOID*>(1);
    const EFI_STATUS status = service->GetSmbiosStructure(type, &record, instance);
    EXPECT_EQ(status == EFI_SUCCESS, record != nullptr);
    EXPECT_TRUE(status == EFI_SUCCESS || status == EFI_INVALID_PARAMETER) << status;
    return static_cast<const uint8_t*>(record);
  }

  std::u16string string_of(const uint8_t* record, UINTN number) {
    CHAR16* text = nullptr;
    EXPECT_EQ(service->GetSmbiosString(record, number, &text), EFI_SUCCESS);
    std::u16string result = text == nullptr ? u"(null)" : std::u16string(text);
    machine->boot_services()->FreePool(text);
    return result;
  }

  TestMachine machine;
  tarvik::SmBiosProtocol* service = nullptr;
  std::deque<std::array<uint8_t, 32>> entry_points_;  // stable addresses
  std::vector<EFI_CONFIGURATION_TABLE> configuration_;
  EFI_SYSTEM_TABLE system_table_ = {};
};

// Of the configuration table's entries, the last 2.x entry point is read,
// and a 3.0 one is preferred wherever it stands.
TEST_F(Smbios, TheLastEntryPointIsReadTheSmbios3OnePreferredAndWithoutOneNothingIsInstalled) {
  // Another vendor's entry is never followed.
  const EFI_CONFIGURATION_TABLE other = {EFI_GUID{0x6AC1D2E5, 0x1F0B, 0x4C57, {1, 2, 3, 4, 5, 6, 7, 8}}, nullptr};
  const size_t pools = machine->memory().outstanding_pools();
  for (const auto& entries : {std::vector<EFI_CONFIGURATION_TABLE>{}, std::vector{other}}) {
    EXPECT_EQ(install_with(entries), EFI_ABORTED);
    EXPECT_EQ(service, nullptr);
    EXPECT_EQ(tarvik::InstalledRecordCount(), 0u);
    EXPECT_EQ(machine->memory().outstanding_pools(), pools);
  }

  GuardedTable first(structure(2, 4, {"first"})), last(structure(3, 4, {"last"}));
  GuardedTable smbios3(structure(4, 4, {"3.0"}) + structure(127, 4, {}));
  ASSERT_EQ(install_with({entry(first, 1), other, entry(last, 1), other}), EFI_SUCCESS);
  EXPECT_EQ(find(2, 0), nullptr);
  ASSERT_NE(find(3, 0), nullptr);
  EXPECT_EQ(string_of(find(3, 0), 1), u"last");
  EXPECT_FALSE(tarvik::SystemSerialNumber(*service)) << "no System Information structure, no serial number";
  tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
  const EFI_CONFIGURATION_TABLE old_entry = entry(last, 1), new_entry = entry(smbios3, 0);
  for (const auto& entries : {std::vector{old_entry, new_entry}, std::vector{new_entry, old_entry}}) {
    ASSERT_EQ(install_with(entries), EFI_SUCCESS);
    EXPECT_EQ(find(3, 0), nullptr);
    ASSERT_NE(find(4, 0), nullptr);
    EXPECT_EQ(string_of(find(4, 0), 1), u"3.0");
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
  }
}

// A 3.0 table, which has no count, is walked to its end-of-table structure on
// every machine that publishes one (hostfw: smbios_tables, screens:
// smbios_entry_points, qemu: boot); one without that structure, with it in the
// middle or cut by the maximum size is read within its bounds by the smbios
// fuzz replay, whose corpus holds each.

// The serial number the result codes and the "Machine" tab use, and fields
// that a firmware's shorter, older version of a structure does not have; a
// long table is walked to its end. Finding structures and widening their
// strings is checked on the host firmware's tables (hostfw: smbios_tables).
TEST_F(Smbios, FieldsBeyondAStructuresLengthReadAsAbsent) {
  Bytes table = structure(1, 8, {"Kestrel", "KV-1", "SN-42"}, {1, 2, 0, 3}) +
                structure(17, 0x17, {"maker"}, {0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x20, 0, 0, 0, 0, 26, 0, 0, 0x40, 6}) +
                structure(1, 7, {"SN-7"}, {0, 0, 1, 1});
  for (int i = 0; i < 300; ++i) table = table + structure(5, 4, {"x"});
  GuardedTable guarded(table + structure(9, 5, {"slot"}));
  ASSERT_EQ(install_on(guarded, 304), EFI_SUCCESS);
  EXPECT_NE(find(5, 299), nullptr);
  EXPECT_EQ(find(5, 300), nullptr);
  const uint8_t* slot = find(9, 0);
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(string_of(slot, 1) + u"|" + string_of(slot, 2) + string_of(slot, 0), u"slot|");  // none beyond, none 0

  const tarvik::PoolPtr<CHAR16> serial = tarvik::SystemSerialNumber(*service);
  ASSERT_TRUE(serial);
  EXPECT_EQ(std::u16string(serial.get()), u"SN-42");

  const auto device = tarvik::ReadSmbiosStructure<tarvik::SmbiosMemoryDevice>(find(17, 0));
  // Packed fields are copied out before comparing: no reference may bind to them.
  EXPECT_EQ(static_cast<unsigned>(device.Size), 0x2000u);
  EXPECT_EQ(static_cast<unsigned>(device.MemoryType), 26u);
  EXPECT_EQ(static_cast<unsigned>(device.Speed), 0x640u) << "the speed's two bytes end the formatted area";
  EXPECT_EQ(device.Manufacturer + device.SerialNumber + device.PartNumber, 0) << "no string named beyond the length";

  // A System Information structure too short for the serial number: the
  // byte after its formatted area is a string's, not the serial's number.
  const auto old_system = tarvik::ReadSmbiosStructure<tarvik::SmbiosSystemInformation>(find(1, 1));
  EXPECT_EQ(static_cast<unsigned>(old_system.SerialNumber), 0u);
  EXPECT_EQ(static_cast<unsigned>(old_system.Version), 1u);
}

}  // namespace
