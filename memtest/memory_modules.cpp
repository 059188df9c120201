#include "memtest/memory_modules.h"

#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "sysinfo/smbios_protocol.h"

namespace tarvik {

constinit MemoryModules InstalledModules = {};

namespace {

constexpr UINT8 MemoryDeviceType = 17;
// Offsets in a Memory Device structure.
constexpr UINTN SizeOffset = 0x0C;
constexpr UINTN TypeOffset = 0x12;
constexpr UINTN SpeedOffset = 0x15;
constexpr UINTN ManufacturerOffset = 0x17;
constexpr UINTN SerialNumberOffset = 0x18;
constexpr UINTN PartNumberOffset = 0x1A;

// A field beyond the structure's formatted length reads as 0.
UINT64 Field(const UINT8* Record, UINTN Offset, UINTN Bytes) {
  if (Offset + Bytes > Record[1]) return 0;
  UINT64 Value = 0;
  for (UINTN I = 0; I < Bytes; ++I) Value |= static_cast<UINT64>(Record[Offset + I]) << (8 * I);
  return Value;
}

CHAR16* String(SmBiosProtocol* SmBios, const UINT8* Record, UINTN Offset) {
  CHAR16* Text = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosString(Record, Field(Record, Offset, 1), &Text))) return nullptr;
  return Text;
}

VOID FreeIfSet(VOID* Buffer) {
  if (Buffer != nullptr) gBS->FreePool(Buffer);
}

}  // namespace

UINT64 TotalModuleGigabytes() {
  UINT64 Total = 0;
  for (UINT64 M = 0; M < InstalledModules.Count; ++M) Total += ModuleGigabytes(M);
  return Total;
}

VOID CollectMemoryModules() {
  InstalledModules = MemoryModules{};
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  if (SmBios == nullptr) return;

  UINT64 Populated = 0;
  VOID* Record = nullptr;
  for (UINT32 Instance = 0; !EFI_ERROR(SmBios->GetSmbiosStructure(MemoryDeviceType, &Record, Instance)); ++Instance)
    if (Field(static_cast<const UINT8*>(Record), SizeOffset, 2) != 0) ++Populated;
  if (Populated == 0) return;

  MemoryModules& M = InstalledModules;
  M.SizeMb = AllocateZeroedArray<UINT64>(Populated);
  M.SpeedMhz = AllocateZeroedArray<UINT64>(Populated);
  M.Type = AllocateZeroedArray<UINT64>(Populated);
  M.Manufacturer = AllocateZeroedArray<CHAR16*>(Populated);
  M.SerialNumber = AllocateZeroedArray<CHAR16*>(Populated);
  M.PartNumber = AllocateZeroedArray<CHAR16*>(Populated);
  if (M.SizeMb == nullptr || M.SpeedMhz == nullptr || M.Type == nullptr || M.Manufacturer == nullptr ||
      M.SerialNumber == nullptr || M.PartNumber == nullptr) {
    ReleaseMemoryModules();
    return;
  }
  for (UINT32 Instance = 0; M.Count < Populated && !EFI_ERROR(SmBios->GetSmbiosStructure(MemoryDeviceType, &Record, Instance));
       ++Instance) {
    const UINT8* Bytes = static_cast<const UINT8*>(Record);
    const UINT64 Size = Field(Bytes, SizeOffset, 2);
    if (Size == 0) continue;
    const UINT64 I = M.Count++;
    M.SizeMb[I] = Size;
    M.SpeedMhz[I] = Field(Bytes, SpeedOffset, 2);
    M.Type[I] = Field(Bytes, TypeOffset, 1);
    M.Manufacturer[I] = String(SmBios, Bytes, ManufacturerOffset);
    M.SerialNumber[I] = String(SmBios, Bytes, SerialNumberOffset);
    M.PartNumber[I] = String(SmBios, Bytes, PartNumberOffset);
  }
}

VOID ReleaseMemoryModules() {
  MemoryModules& M = InstalledModules;
  CHAR16** const TextArrays[] = {M.Manufacturer, M.SerialNumber, M.PartNumber};
  for (CHAR16** Texts : TextArrays) {
    if (Texts == nullptr) continue;
    for (UINT64 I = 0; I < M.Count; ++I) FreeIfSet(Texts[I]);
  }
  VOID* const Arrays[] = {M.SizeMb, M.SpeedMhz, M.Type, M.Manufacturer, M.SerialNumber, M.PartNumber};
  for (VOID* Array : Arrays) FreeIfSet(Array);
  M = MemoryModules{};
}

}  // namespace tarvik
