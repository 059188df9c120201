#include "memtest/memory_modules.h"

#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "sysinfo/smbios_strings.h"

namespace tarvik {


namespace {

constexpr UINT8 MemoryDeviceType = static_cast<UINT8>(SmbiosType::MemoryDevice);

SmbiosMemoryDevice ReadDevice(const VOID* Record) { return ReadSmbiosStructure<SmbiosMemoryDevice>(Record); }

VOID FreeIfSet(VOID* Buffer) {
  if (Buffer != nullptr) gBS->FreePool(Buffer);
}

}  // namespace

UINT64 TotalModuleGigabytes(const MemoryModules& Modules) {
  UINT64 Total = 0;
  for (UINT64 M = 0; M < Modules.Count; ++M) Total += ModuleGigabytes(Modules, M);
  return Total;
}

VOID CollectMemoryModules(MemoryModules& M) {
  M = MemoryModules{};
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  if (SmBios == nullptr) return;

  UINT64 Populated = 0;
  VOID* Record = nullptr;
  for (UINT32 Instance = 0; !EFI_ERROR(SmBios->GetSmbiosStructure(MemoryDeviceType, &Record, Instance)); ++Instance)
    if (ReadDevice(Record).Size != 0) ++Populated;
  if (Populated == 0) return;

  M.SizeMb = AllocateZeroedArray<UINT64>(Populated);
  M.SpeedMhz = AllocateZeroedArray<UINT64>(Populated);
  M.Type = AllocateZeroedArray<UINT64>(Populated);
  M.Manufacturer = AllocateZeroedArray<CHAR16*>(Populated);
  M.SerialNumber = AllocateZeroedArray<CHAR16*>(Populated);
  M.PartNumber = AllocateZeroedArray<CHAR16*>(Populated);
  M.Locator = AllocateZeroedArray<CHAR16*>(Populated);
  if (M.Locator == nullptr || M.SizeMb == nullptr || M.SpeedMhz == nullptr || M.Type == nullptr || M.Manufacturer == nullptr ||
      M.SerialNumber == nullptr || M.PartNumber == nullptr) {
    ReleaseMemoryModules(M);
    return;
  }
  for (UINT32 Instance = 0; M.Count < Populated && !EFI_ERROR(SmBios->GetSmbiosStructure(MemoryDeviceType, &Record, Instance));
       ++Instance) {
    const SmbiosMemoryDevice Device = ReadDevice(Record);
    if (Device.Size == 0) continue;
    const UINT64 I = M.Count++;
    M.SizeMb[I] = Device.Size;
    M.SpeedMhz[I] = Device.Speed;
    M.Type[I] = Device.MemoryType;
    M.Manufacturer[I] = SmbiosString(*SmBios, Record, Device.Manufacturer).release();
    M.SerialNumber[I] = SmbiosString(*SmBios, Record, Device.SerialNumber).release();
    M.PartNumber[I] = SmbiosString(*SmBios, Record, Device.PartNumber).release();
    M.Locator[I] = SmbiosString(*SmBios, Record, Device.DeviceLocator).release();
  }
}

VOID ReleaseMemoryModules(MemoryModules& M) {
  CHAR16** const TextArrays[] = {M.Manufacturer, M.SerialNumber, M.PartNumber, M.Locator};
  for (CHAR16** Texts : TextArrays) {
    if (Texts == nullptr) continue;
    for (UINT64 I = 0; I < M.Count; ++I) FreeIfSet(Texts[I]);
  }
  VOID* const Arrays[] = {M.SizeMb, M.SpeedMhz, M.Type, M.Manufacturer, M.SerialNumber, M.PartNumber, M.Locator};
  for (VOID* Array : Arrays) FreeIfSet(Array);
  M = MemoryModules{};
}

}  // namespace tarvik
