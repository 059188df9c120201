#include "storage/drive_discovery.h"

#include "core/connect_controllers.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/pool.h"
#include "storage/ata_commands.h"
#include "storage/ata_definitions.h"
#include "storage/identify_parser.h"
#include "storage/io_pages.h"
#include "storage/smart_attributes.h"

namespace tarvik {

namespace {

constexpr UINT64 ProbeTimeoutSeconds = 2;
constexpr UINT64 IdentifyTimeoutSeconds = 20;
constexpr UINT16 FirstPort = 0xFFFF;  // asks GetNextPort / GetNextDevice for the first
constexpr UINT16 NoPortMultiplier = 0xFFFF;

// Probes every device of one pass-through instance into the next free
// records, until the table is full.
VOID EnumerateInstance(StorageDrives* Drives, EFI_ATA_PASS_THRU_PROTOCOL* PassThru) {
  UINT16 Port = FirstPort;
  while (Drives->DeviceCount < MaxStorageDevices && !EFI_ERROR(PassThru->GetNextPort(PassThru, &Port))) {
    UINT16 MultiplierPort = FirstPort;
    EFI_STATUS Next = PassThru->GetNextDevice(PassThru, Port, &MultiplierPort);
    // OVMF remembers that its last answer was a drive without a multiplier
    // and answers the next question with 0xFFFF, on any port, with
    // EFI_NOT_FOUND; asked once more it starts the port's list. A port
    // GetNextPort named has a device, so the first question is asked twice.
    if (EFI_ERROR(Next)) {
      MultiplierPort = FirstPort;
      Next = PassThru->GetNextDevice(PassThru, Port, &MultiplierPort);
    }
    while (Drives->DeviceCount < MaxStorageDevices && !EFI_ERROR(Next)) {
      if (!EFI_ERROR(ProbeDevice(PassThru, Port, MultiplierPort, &Drives->Devices[Drives->DeviceCount])))
        ++Drives->DeviceCount;
      // A drive without a port multiplier is its port's only device; asking
      // again with 0xFFFF would ask for the first device once more.
      if (MultiplierPort == NoPortMultiplier) break;
      Next = PassThru->GetNextDevice(PassThru, Port, &MultiplierPort);
    }
  }
}

BOOLEAN IsPhysical(const EFI_ATA_PASS_THRU_PROTOCOL* PassThru) {
  return PassThru->Mode != nullptr && (PassThru->Mode->Attributes & EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL) != 0;
}

BOOLEAN IsPacketSignature(const EFI_ATA_STATUS_BLOCK* Block) {
  return Block->AtaCylinderLow == ata::PacketSignatureLow && Block->AtaCylinderHigh == ata::PacketSignatureHigh;
}

VOID ReleaseInfoTable(StorageDrives* Drives) {
  for (UINT64 I = 0; I < Drives->DeviceCount; ++I) Drives->Devices[I].Info = nullptr;
  if (Drives->Infos != nullptr) gBS->FreePool(Drives->Infos);
  Drives->Infos = nullptr;
}

}  // namespace

EFI_STATUS DiscoverStorageDevices(StorageDrives* Drives) {
  PoolPtr<EFI_HANDLE> Handles;
  UINTN HandleCount = 0;
  LocateHandlesConnectingOnce(EFI_ATA_PASS_THRU_PROTOCOL_GUID, Handles, HandleCount);
  if (HandleCount == 0) {
    Print(u"Protocol AtaPassThrough not found!\n");
    return EFI_ABORTED;
  }

  Drives->Devices = AllocateZeroedArray<StorageDevice>(MaxStorageDevices);
  if (Drives->Devices == nullptr) return EFI_OUT_OF_RESOURCES;
  Drives->DeviceCount = 0;
  for (UINT64 I = 0; I < MaxStorageDevices; ++I) Drives->Devices[I].CommandPacket = &Drives->CommandPacket;

  EFI_GUID Guid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
  for (UINTN H = 0; H < HandleCount && Drives->DeviceCount < MaxStorageDevices; ++H) {
    VOID* Interface = nullptr;
    const EFI_STATUS Status = gBS->OpenProtocol(Handles.get()[H], &Guid, &Interface, gImageHandle, nullptr,
                                                EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL);
    if (EFI_ERROR(Status)) {
      ReleaseStorageDevices(Drives);
      return Status;
    }
    auto* PassThru = static_cast<EFI_ATA_PASS_THRU_PROTOCOL*>(Interface);
    if (IsPhysical(PassThru)) EnumerateInstance(Drives, PassThru);
  }
  if (Drives->DeviceCount == 0) {
    Print(u"Ata Device not found!\n");
    ReleaseStorageDevices(Drives);
    return EFI_ABORTED;
  }
  return EFI_SUCCESS;
}

EFI_STATUS ProbeDevice(EFI_ATA_PASS_THRU_PROTOCOL* PassThru, UINT16 Port, UINT16 PortMultiplierPort,
                       StorageDevice* Device) {
  const StorageDevice Before = *Device;
  Device->PassThru = PassThru;
  IoPages StatusPage(Device, sizeof(EFI_ATA_STATUS_BLOCK));
  IoPages DataPage(Device, ata::SectorBytes);
  if (!StatusPage || !DataPage) {
    *Device = Before;
    return EFI_OUT_OF_RESOURCES;
  }
  Device->StatusBlock = static_cast<EFI_ATA_STATUS_BLOCK*>(StatusPage.get());
  Device->DataBuffer = DataPage.get();

  const EFI_STATUS Status = AtaIdentifyDevice(Device, Port, PortMultiplierPort, ProbeTimeoutSeconds);
  if (!EFI_ERROR(Status) && SerialNumberIsPrintable(static_cast<const UINT8*>(Device->DataBuffer))) {
    StatusPage.release();
    DataPage.release();
    Device->Port = Port;
    Device->PortMultiplierPort = PortMultiplierPort;
    return EFI_SUCCESS;
  }
  // A packet device aborts IDENTIFY DEVICE; the reset leaves it ready for
  // its own driver.
  if (EFI_ERROR(Status) && IsPacketSignature(Device->StatusBlock))
    PassThru->ResetDevice(PassThru, Port, PortMultiplierPort);
  *Device = Before;
  return EFI_ERROR(Status) ? Status : EFI_ABORTED;
}

EFI_STATUS IdentifyDevice(StorageDevice* Device) {
  if (Device == nullptr || Device->Info == nullptr || Device->DataBuffer == nullptr) return EFI_INVALID_PARAMETER;
  const EFI_STATUS Status =
      AtaIdentifyDevice(Device, Device->Port, Device->PortMultiplierPort, IdentifyTimeoutSeconds);
  if (EFI_ERROR(Status)) return Status;
  const auto* Data = static_cast<const UINT8*>(Device->DataBuffer);
  // Data the probe would not have taken for a drive (garbage on the cable,
  // a drive in trouble) must not replace what was read when it answered.
  if (!SerialNumberIsPrintable(Data)) return EFI_DEVICE_ERROR;
  ParseIdentifyData(Data, Device->Info);
  // The SMART data replaces the IDENTIFY data in the data page.
  Device->Info->Temperature = SmartReadData(Device) == EFI_SUCCESS ? SmartTemperature(Data) : 0;
  return EFI_SUCCESS;
}

EFI_STATUS IdentifyAllDevices(StorageDrives* Drives) {
  ReleaseInfoTable(Drives);
  Drives->Infos = AllocateZeroedArray<StorageDeviceInfo>(Drives->DeviceCount);
  if (Drives->Infos == nullptr) return EFI_ABORTED;
  for (UINT64 I = 0; I < Drives->DeviceCount; ++I) Drives->Devices[I].Info = &Drives->Infos[I];
  for (UINT64 I = 0; I < Drives->DeviceCount; ++I) {
    if (EFI_ERROR(IdentifyDevice(&Drives->Devices[I]))) {
      ReleaseInfoTable(Drives);
      return EFI_ABORTED;
    }
  }
  return EFI_SUCCESS;
}

INT32 GetRotationClass(const StorageDevice* Device) {
  if (Device == nullptr || Device->Info == nullptr) return 0;
  const UINT16 Rate = Device->Info->RotationRate;
  if (Rate == 1) return 1;
  if (Rate >= 1025 && Rate <= 65534) return Rate;
  return 0;
}

EFI_STATUS BuildToolDeviceList(StorageDrives* Drives) {
  if (Drives->ToolDevices != nullptr) gBS->FreePool(Drives->ToolDevices);
  Drives->ToolDevices = nullptr;
  Drives->ToolDeviceCount = 0;
  UINT64 Rotating = 0;
  for (UINT64 I = 0; I < Drives->DeviceCount; ++I)
    if (Drives->Devices[I].Info != nullptr && Drives->Devices[I].Info->NonRotating == 0) ++Rotating;
  if (Rotating == 0) return EFI_SUCCESS;
  StorageDevice** List = AllocateZeroedArray<StorageDevice*>(Rotating);
  if (List == nullptr) return EFI_OUT_OF_RESOURCES;
  for (UINT64 I = 0; I < Drives->DeviceCount; ++I)
    if (Drives->Devices[I].Info != nullptr && Drives->Devices[I].Info->NonRotating == 0)
      List[Drives->ToolDeviceCount++] = &Drives->Devices[I];
  Drives->ToolDevices = List;
  return EFI_SUCCESS;
}

VOID ReleaseStorageDevices(StorageDrives* Drives) {
  if (Drives->ToolDevices != nullptr) gBS->FreePool(Drives->ToolDevices);
  if (Drives->Devices != nullptr) {
    ReleaseInfoTable(Drives);
    for (UINT64 I = 0; I < Drives->DeviceCount; ++I) {
      FreeIoPages(Drives->Devices[I].StatusBlock, sizeof(EFI_ATA_STATUS_BLOCK));
      FreeIoPages(Drives->Devices[I].DataBuffer, ata::SectorBytes);
    }
    gBS->FreePool(Drives->Devices);
  }
  gBS->SetMem(Drives, sizeof(*Drives), 0);
}

}  // namespace tarvik
