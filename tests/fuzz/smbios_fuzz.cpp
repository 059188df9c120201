// The SMBIOS service and its readers on any table bytes with any declared
// length and structure count, published through a 2.x entry point, a 3.0
// one (the length as its maximum size, walked to the end-of-table
// structure) or both: the walk by type and instance, the strings of every
// structure found and of a record anywhere in or around the table, and what
// the screens and the result code read (the structures in their full
// layouts, the machine's serial number). Every structure handed out must lie
// inside the declared table; the table's end is followed by an unreadable
// page, so a read past it crashes. The text service's language, detected at
// installation from the BIOS Language structure, must be one of the eight
// the string tables have. Then the memory module, installed on the table,
// gathers its modules from the Memory Device structures, and every system
// information, log and run information row and its summary line is read:
// each text terminated within its row's buffer, the row counts describing
// the same modules, a row past the last refused. The input may also make
// one pool allocation of the reads or of the memory module fail.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "memtest/memory_test_protocol.h"
#include "registry/module_registry_protocol.h"
#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "sysinfo/smbios_structures.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/fake_test_module.h"
#include "text/language_protocol.h"

namespace {

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "smbios: %s\n", what);
  std::abort();
}

// The table's bytes at its declared length (cut there, or zero-filled up to
// it), below 4 GiB (an SMBIOS entry point holds a 32-bit table address) and
// right before a page that cannot be read, so a read past the end crashes.
const uint8_t* PlaceTable(const std::vector<uint8_t>& bytes, size_t length) {
  static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  static const size_t room = (0x10000 + page - 1) / page * page;  // the longest a 16-bit length declares
  static uint8_t* const base = [] {
    void* at = mmap(nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
    if (at == MAP_FAILED) Fail("no memory below 4 GiB");
    mprotect(static_cast<uint8_t*>(at) + room, page, PROT_NONE);
    return static_cast<uint8_t*>(at);
  }();
  uint8_t* start = base + room - length;
  const size_t given = std::min(bytes.size(), length);
  if (given != 0) std::memcpy(start, bytes.data(), given);
  std::memset(start + given, 0, length - given);
  return start;
}

// A copy of the machine's system table whose configuration table holds only
// SMBIOS entry points (kind 0: the 2.x one, 1: the 3.0 one, 2: both) for a
// table of the input: its declared length, its structure count, its bytes.
class SmbiosFirmware {
 public:
  SmbiosFirmware(fuzz_support::FuzzInput& in, uint8_t kind) {
    const uint16_t length = in.take<uint16_t>(), structures = in.take<uint16_t>();
    length_ = length;
    table_ = PlaceTable(in.rest(), length);
    const uint32_t address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(table_)), maximum_size = length;
    const uint64_t address64 = reinterpret_cast<uintptr_t>(table_);
    std::memcpy(entry_point_, "_SM_", 4);
    std::memcpy(entry_point_ + 0x10, "_DMI_", 5);
    std::memcpy(entry_point_ + 0x16, &length, 2);
    std::memcpy(entry_point_ + 0x18, &address, 4);
    std::memcpy(entry_point_ + 0x1C, &structures, 2);
    std::memcpy(entry_point3_, "_SM3_", 5);
    std::memcpy(entry_point3_ + 0x0C, &maximum_size, 4);
    std::memcpy(entry_point3_ + 0x10, &address64, 8);
    UINTN entries = 0;
    if (kind != 1) configuration_[entries++] = {SMBIOS_TABLE_GUID, entry_point_};
    if (kind != 0) configuration_[entries++] = {SMBIOS3_TABLE_GUID, entry_point3_};
    system_table_ = *fuzz_support::machine().system_table();
    system_table_.NumberOfTableEntries = entries;
    system_table_.ConfigurationTable = configuration_;
  }
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

// Reads every string the structure at Record may name, and checks each is
// a terminated text no longer than the table. A structure the walk handed
// out has every string (unless memory ran out).
void ReadStrings(tarvik::SmBiosProtocol& smbios, const SmbiosFirmware& firmware, const VOID* record,
                 const fuzz_support::FailingPool& pool, bool from_walk) {
  static constexpr UINTN kNumbers[] = {0, 1, 2, 3, 4, 5, 8, 255, 256};
  for (UINTN number : kNumbers) {
    CHAR16* text = nullptr;
    const EFI_STATUS status = smbios.GetSmbiosString(record, number, &text);
    if (EFI_ERROR(status)) {
      if (text != nullptr) Fail("a failed string read handed out a text");
      if (from_walk && !pool.fired()) Fail("a string of a structure the walk found was refused");
      continue;
    }
    if (text == nullptr) Fail("a string read succeeded without a text");
    size_t length = 0;
    while (text[length] != 0) ++length;
    if (length > firmware.length()) Fail("a string longer than the table");
    if (number == 0 && length != 0) Fail("string number 0 is not empty");
    tarvik::gBS->FreePool(text);
  }
}

template <typename Structure>
void ReadFullLayout(const VOID* record) {
  const Structure copy = tarvik::ReadSmbiosStructure<Structure>(record);
  if (copy.Header.Length != static_cast<const tarvik::SmbiosHeader*>(record)->Length) Fail("header not copied");
}

// Characters a memory row's texts may hold, terminator included (the rows'
// buffers are 2048 bytes).
constexpr size_t kRowChars = 1024;

void CheckRowText(const CHAR16* text) {
  if (text == nullptr) Fail("a memory row without its text");
  size_t length = 0;
  while (text[length] != 0) ++length;
  if (length >= kRowChars) Fail("a text longer than its memory row");
  tarvik::gBS->FreePool(const_cast<CHAR16*>(text));
}

// Every row of one getter, then the first row past the last.
template <typename Get>
void ReadRows(UINT64 count, const fuzz_support::FailingPool& pool, Get get) {
  for (UINT64 row = 0; row <= count; ++row) {
    CHAR16* label = nullptr;
    CHAR16* value = nullptr;
    const EFI_STATUS status = get(row, &label, &value);
    if (row == count && (status != EFI_INVALID_PARAMETER || label != nullptr || value != nullptr))
      Fail("a memory row past the last");
    if (row == count) continue;
    if (EFI_ERROR(status)) {
      if (!pool.fired() || label != nullptr || value != nullptr) Fail("a memory row refused");
      continue;
    }
    CheckRowText(label);
    CheckRowText(value);
  }
}

// The memory module installed on the table and every row it shows or logs.
void ReadMemoryRows(SmbiosFirmware& firmware, const fuzz_support::FailingPool& pool) {
  if (EFI_ERROR(tarvik::InstallMemoryTest(fuzz_support::machine().image_handle(), firmware.system_table()))) {
    if (pool.fired()) return;
    Fail("the memory module was not installed");
  }
  tarvik::TestModuleProtocol* module = nullptr;
  if (EFI_ERROR(testing_support::located_test_collection()->GetTest(0, &module)) || module == nullptr)
    Fail("the memory module was not registered");
  const UINT64 system_rows = module->GetSystemInfoRowCount(module);
  const UINT64 log_rows = module->GetLogRowCount(module);
  if ((system_rows - 1) % 7 != 0 || (log_rows - 3) % 8 != 0 || (system_rows - 1) / 7 != (log_rows - 3) / 8)
    Fail("memory row counts of different modules");
  ReadRows(system_rows, pool, [&](UINT64 row, CHAR16** label, CHAR16** value) {
    return module->GetSystemInfoRow(module, row, label, value);
  });
  ReadRows(log_rows, pool,
           [&](UINT64 row, CHAR16** key, CHAR16** value) { return module->GetLogRow(module, row, key, value); });
  ReadRows(module->GetRunInfoRowCount(module), pool, [&](UINT64 row, CHAR16** label, CHAR16** value) {
    return module->GetRunInfoRow(module, row, 0, label, value);
  });
  for (UINT64 line = 0; line < module->GetSummaryLineCount(); ++line) {
    CHAR16* text = nullptr;
    if (!EFI_ERROR(module->GetSummaryLine(line, &text))) {
      CheckRowText(text);
    } else if (!pool.fired() || text != nullptr) {
      Fail("a memory summary line refused");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_support::FuzzInput in(data, size);
  const uint8_t fail_allocation = in.take<uint8_t>();
  const uint8_t entry_points = in.take<uint8_t>() % 3;
  const UINT8 probe_type = in.take<UINT8>();
  const UINT16 probe_offset = in.take<UINT16>();
  SmbiosFirmware firmware(in, entry_points);
  fuzz_support::LeakCheck leaks("smbios");
  fuzz_support::CoreServices services(firmware.system_table());
  auto* smbios = static_cast<tarvik::SmBiosProtocol*>(fuzz_support::Located(tarvik::SmBiosProtocolGuid));
  if (smbios == nullptr) Fail("not installed although the firmware has an SMBIOS entry point");
  auto* language = static_cast<tarvik::LanguageProtocol*>(fuzz_support::Located(tarvik::LanguageProtocolGuid));
  if (language == nullptr || language->GetLanguage() >= 8) Fail("a language the string tables lack");
  fuzz_support::FailingPool pool(fail_allocation);

  const UINT8 types[] = {0, 1, 4, 13, 17, probe_type};
  for (UINT8 type : types) {
    VOID* record = nullptr;
    for (UINT32 instance = 0; !EFI_ERROR(smbios->GetSmbiosStructure(type, &record, instance)); ++instance) {
      const auto* bytes = static_cast<const uint8_t*>(record);
      const uint8_t* end = firmware.table() + firmware.length();
      if (bytes < firmware.table() || end - bytes < 4) Fail("a structure outside the table");
      const auto* header = static_cast<const tarvik::SmbiosHeader*>(record);
      if (header->Type != type) Fail("a structure of another type");
      if (header->Length < 4 || header->Length > end - bytes) Fail("a structure whose formatted area leaves the table");
      ReadStrings(*smbios, firmware, record, pool, true);
      switch (type) {
        case 0: ReadFullLayout<tarvik::SmbiosBiosInformation>(record); break;
        case 1: ReadFullLayout<tarvik::SmbiosSystemInformation>(record); break;
        case 4: ReadFullLayout<tarvik::SmbiosProcessorInformation>(record); break;
        case 13: ReadFullLayout<tarvik::SmbiosBiosLanguage>(record); break;
        case 17: ReadFullLayout<tarvik::SmbiosMemoryDevice>(record); break;
        default: break;
      }
      if (instance > firmware.length()) Fail("more structures than the table has bytes");
    }
    if (record != nullptr) Fail("a failed walk handed out a structure");
  }
  tarvik::PoolPtr<CHAR16> serial = tarvik::SystemSerialNumber(*smbios);

  // A record the caller points anywhere: inside the table, past it, before it.
  ReadStrings(*smbios, firmware, firmware.table() + probe_offset, pool, false);
  CHAR16* text = nullptr;
  if (smbios->GetSmbiosString(firmware.table() - 1, 1, &text) != EFI_INVALID_PARAMETER || text != nullptr)
    Fail("a record before the table was read");
  ReadMemoryRows(firmware, pool);
  return 0;
}
