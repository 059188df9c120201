#include "nvme/nvme_discovery.h"

#include "core/connect_controllers.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/pool.h"
#include "nvme/nvme_commands.h"

namespace tarvik {
namespace {

constexpr UINT8 CnsNamespace = 0x00;
constexpr UINT8 CnsController = 0x01;
constexpr UINT32 FirstNamespace = 0xFFFFFFFF;  // asks GetNextNamespace for the first
// A controller names at most this many namespaces: a broken GetNextNamespace
// that never ends cannot keep discovery going.
constexpr UINT32 MaxNamespacesAsked = 1024;

BOOLEAN IdentifyController(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT8* Page, NvmeControllerFacts* Facts) {
  return NvmeIdentify(PassThru, 0, CnsController, Page) == NvmeAnswer::Done &&
         ParseIdentifyController(Page, NvmePageBytes, Facts);
}

BOOLEAN IdentifyNamespace(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINT32 NamespaceId, UINT8* Page,
                          NvmeNamespaceFacts* Facts) {
  return NvmeIdentify(PassThru, NamespaceId, CnsNamespace, Page) == NvmeAnswer::Done &&
         ParseIdentifyNamespace(Page, NvmePageBytes, Facts);
}

// An inactive namespace ID answers Identify Namespace with a page of zeros.
// Controllers list every ID up to their namespace count (QEMU: 256 with one
// active), so these are passed over without a line.
BOOLEAN IsInactiveNamespacePage(const UINT8* Page) {
  for (UINTN I = 0; I < NvmePageBytes; ++I)
    if (Page[I] != 0) return FALSE;
  return TRUE;
}

// Every active namespace of one controller into the next free records.
VOID EnumerateController(NvmeDrives* Drives, EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru, UINTN Controller,
                         UINT8* Page) {
  NvmeControllerFacts Facts{};
  if (!IdentifyController(PassThru, Page, &Facts)) {
    Print(u"NVMe controller %d: Identify Controller refused or unreadable, skipped.\n", static_cast<INT32>(Controller));
    return;
  }
  const UINT64 First = Drives->DeviceCount;
  UINT32 NamespaceId = FirstNamespace;
  for (UINT32 Asked = 0; Asked < MaxNamespacesAsked && Drives->DeviceCount < MaxNvmeDevices &&
                         !EFI_ERROR(PassThru->GetNextNamespace(PassThru, &NamespaceId));
       ++Asked) {
    NvmeDevice& Device = Drives->Devices[Drives->DeviceCount];
    gBS->SetMem(Page, NvmePageBytes, 0xFF);
    if (!IdentifyNamespace(PassThru, NamespaceId, Page, &Device.Namespace)) {
      if (IsInactiveNamespacePage(Page)) continue;
      Print(u"NVMe controller %d namespace %u: Identify Namespace refused or unreadable, skipped.\n",
            static_cast<INT32>(Controller), NamespaceId);
      continue;
    }
    Device.PassThru = PassThru;
    Device.NamespaceId = NamespaceId;
    Device.Controller = Facts;
    ++Drives->DeviceCount;
  }
  for (UINT64 I = First; I < Drives->DeviceCount; ++I)
    Drives->Devices[I].NamespaceCount = static_cast<UINT32>(Drives->DeviceCount - First);
}

BOOLEAN IsPhysical(const EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* PassThru) {
  return PassThru->Mode != nullptr && (PassThru->Mode->Attributes & EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_PHYSICAL) != 0;
}

}  // namespace

EFI_STATUS DiscoverNvmeDevices(NvmeDrives* Drives) {
  *Drives = NvmeDrives{};
  PoolPtr<EFI_HANDLE> Handles;
  UINTN HandleCount = 0;
  LocateHandlesConnectingOnce(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL_GUID, Handles, HandleCount);
  // Most machines of a few years ago have no NVMe drive: nothing to say.
  if (HandleCount == 0) return EFI_NOT_FOUND;

  NvmePages Page(NvmePageBytes);
  Drives->Devices = AllocateZeroedArray<NvmeDevice>(MaxNvmeDevices);
  if (!Page || Drives->Devices == nullptr) {
    ReleaseNvmeDevices(Drives);
    return EFI_OUT_OF_RESOURCES;
  }
  EFI_GUID Guid = EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL_GUID;
  for (UINTN H = 0; H < HandleCount && Drives->DeviceCount < MaxNvmeDevices; ++H) {
    VOID* Interface = nullptr;
    if (EFI_ERROR(gBS->OpenProtocol(Handles.get()[H], &Guid, &Interface, gImageHandle, nullptr,
                                    EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL)))
      continue;
    auto* PassThru = static_cast<EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL*>(Interface);
    if (IsPhysical(PassThru)) EnumerateController(Drives, PassThru, H, Page.get());
  }
  if (Drives->DeviceCount == 0) {
    Print(u"NVMe Device not found!\n");
    ReleaseNvmeDevices(Drives);
    return EFI_NOT_FOUND;
  }
  return EFI_SUCCESS;
}

VOID ReleaseNvmeDevices(NvmeDrives* Drives) {
  if (Drives->Devices != nullptr) gBS->FreePool(Drives->Devices);
  *Drives = NvmeDrives{};
}

EFI_STATUS IdentifyNvmeDevice(NvmeDevice& Device) {
  NvmePages Page(NvmePageBytes);
  if (!Page) return EFI_OUT_OF_RESOURCES;
  NvmeControllerFacts Controller{};
  NvmeNamespaceFacts Namespace{};
  if (!IdentifyController(Device.PassThru, Page.get(), &Controller) ||
      !IdentifyNamespace(Device.PassThru, Device.NamespaceId, Page.get(), &Namespace))
    return EFI_DEVICE_ERROR;
  Device.Controller = Controller;
  Device.Namespace = Namespace;
  return EFI_SUCCESS;
}

}  // namespace tarvik
