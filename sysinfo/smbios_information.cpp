// SMBIOS information: finds the structure table through the firmware's
// configuration table once, then hands out structures by type and instance
// and their strings widened to UTF-16.
#include "core/pool.h"
#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_structures.h"
#include "sysinfo/smbios_table.h"

namespace tarvik {
namespace {

constinit SmBiosProtocol* SmBiosRecord = nullptr;
constinit SmbiosTable Table = {};

SmbiosTable TableOf(const SmbiosEntryPoint& EntryPoint) {
  return {.Start = reinterpret_cast<const UINT8*>(static_cast<UINTN>(EntryPoint.TableAddress)),
          .Length = EntryPoint.TableLength,
          .Structures = EntryPoint.NumberOfStructures};
}

SmbiosTable TableOf(const Smbios3EntryPoint& EntryPoint) {
  return {.Start = reinterpret_cast<const UINT8*>(static_cast<UINTN>(EntryPoint.TableAddress)),
          .Length = EntryPoint.TableMaximumSize,
          .UntilEndOfTable = TRUE};
}

// The 3.0 entry point when the firmware publishes one, else the 2.x one:
// firmware that publishes both means the 3.0 table, which a 2.x entry point
// may describe only in part. Of several entries of a kind the last wins.
BOOLEAN FindTable(const EFI_SYSTEM_TABLE* SystemTable, SmbiosTable& Found) {
  const EFI_GUID Smbios2Guid = SMBIOS_TABLE_GUID;
  const EFI_GUID Smbios3Guid = SMBIOS3_TABLE_GUID;
  BOOLEAN Any2 = FALSE, Any3 = FALSE;
  SmbiosTable Table2, Table3;
  for (UINTN I = 0; I < SystemTable->NumberOfTableEntries; ++I) {
    const EFI_CONFIGURATION_TABLE& Entry = SystemTable->ConfigurationTable[I];
    if (Entry.VendorTable == nullptr) continue;
    if (Entry.VendorGuid == Smbios3Guid) {
      Table3 = TableOf(*static_cast<const Smbios3EntryPoint*>(Entry.VendorTable));
      Any3 = TRUE;
    } else if (Entry.VendorGuid == Smbios2Guid) {
      Table2 = TableOf(*static_cast<const SmbiosEntryPoint*>(Entry.VendorTable));
      Any2 = TRUE;
    }
  }
  if (!Any2 && !Any3) return FALSE;
  Found = Any3 ? Table3 : Table2;
  return TRUE;
}

EFIAPI EFI_STATUS GetSmbiosStructure(UINT8 Type, VOID** Record, UINT32 Instance) {
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  *Record = const_cast<UINT8*>(FindSmbiosStructure(Table, Type, Instance));
  return *Record != nullptr ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

EFIAPI EFI_STATUS GetSmbiosString(const VOID* Record, UINTN StringNumber, CHAR16** Text) {
  if (Text == nullptr) return EFI_INVALID_PARAMETER;
  *Text = nullptr;
  const UINT8* Bytes = nullptr;
  UINTN Length = 0;
  if (!FindSmbiosString(Table, static_cast<const UINT8*>(Record), StringNumber, &Bytes, &Length))
    return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> Wide;
  EFI_STATUS Status = Wide.Allocate((Length + 1) * sizeof(CHAR16));
  if (EFI_ERROR(Status)) return Status;
  // Each byte becomes the character of the same value (Latin-1).
  for (UINTN I = 0; I < Length; ++I) Wide.get()[I] = Bytes[I];
  Wide.get()[Length] = 0;
  *Text = Wide.release();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS UnloadSmBios(EFI_HANDLE) {
  Table = {};
  return ReleaseServiceRecord(gBS, SmBiosRecord);
}

VOID FillOperations(SmBiosProtocol& Record) {
  Record.GetSmbiosStructure = GetSmbiosStructure;
  Record.GetSmbiosString = GetSmbiosString;
}

// Runs before the record is filled and installed, so a machine without
// SMBIOS tables leaves nothing installed; start-up reports the failure.
EFI_STATUS FindTableBeforeInstalling(EFI_SYSTEM_TABLE* SystemTable) {
  SmbiosTable Found;
  if (!FindTable(SystemTable, Found)) return EFI_ABORTED;
  Table = Found;
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS InstallSmBios(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  ServiceDescriptor<SmBiosProtocol> Service = {
      .Guid = SmBiosProtocolGuid,
      .Name = u"SmBios Protocol",
      .ModuleRecord = &SmBiosRecord,
      .Unload = UnloadSmBios,
      .FillOperations = FillOperations,
      .Prepare = FindTableBeforeInstalling,
  };
  return InstallService(ImageHandle, SystemTable, Service);
}

}  // namespace tarvik
