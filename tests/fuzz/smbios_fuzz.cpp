// The SMBIOS service on any table bytes with any declared length and
// structure count, published through a 2.x entry point, a 3.0 one (the
// length as its maximum size, walked to the end-of-table structure) or
// both: the walk by type and instance, the strings of every
// structure found and of a record anywhere in or around the table, and what
// the screens and the result code read (the structures in their full
// layouts, the machine's serial number). Every structure handed out must lie
// inside the declared table; the table's end is followed by an unreadable
// page, so a read past it crashes. The input may also make one pool
// allocation of the reads fail.
#include <cstdio>
#include <cstdlib>

#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "sysinfo/smbios_structures.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

using fuzz_support::SmbiosFirmware;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "smbios: %s\n", what);
  std::abort();
}

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_support::FuzzInput in(data, size);
  const uint8_t fail_allocation = in.take<uint8_t>();
  const auto entry_points = static_cast<fuzz_support::SmbiosEntryPoints>(in.take<uint8_t>() % 3);
  const UINT8 probe_type = in.take<UINT8>();
  const UINT16 probe_offset = in.take<UINT16>();
  SmbiosFirmware firmware(fuzz_support::TakeSmbiosInput(in), entry_points);
  fuzz_support::LeakCheck leaks("smbios");
  fuzz_support::CoreServices services(firmware.system_table());
  auto* smbios = static_cast<tarvik::SmBiosProtocol*>(fuzz_support::Located(tarvik::SmBiosProtocolGuid));
  if (smbios == nullptr) Fail("not installed although the firmware has an SMBIOS entry point");
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
  return 0;
}
