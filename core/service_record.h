// The header every service record starts with, and the installer that every
// service but the shared services goes through.
#pragma once

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/startup_texts.h"

namespace tarvik {

struct ServiceRecordHeader {
  UINT32 Revision;            // always 1
  EFI_HANDLE ImageHandle;     // the handle the record is installed on
  EFI_IMAGE_UNLOAD Unload;    // clean-up operation, written by InstallProtocol
  EFI_GUID Guid;              // the record's own GUID
};
static_assert(__builtin_offsetof(ServiceRecordHeader, ImageHandle) == 8);
static_assert(__builtin_offsetof(ServiceRecordHeader, Unload) == 16);
static_assert(__builtin_offsetof(ServiceRecordHeader, Guid) == 24);
// Operations start at slot 5.
static_assert(sizeof(ServiceRecordHeader) == 5 * 8);

// What an installer needs to know of its service. Record must start with a
// ServiceRecordHeader named Header.
template <typename Record>
struct ServiceDescriptor {
  EFI_GUID Guid;
  const CHAR16* Name;                 // as in "Falha ao instalar <Name>: ..."
  Record** ModuleRecord;              // the module's pointer to its record
  EFI_IMAGE_UNLOAD Unload;            // the record's clean-up operation
  VOID (*FillOperations)(Record&);
  // Optional work between allocating and filling the record (the registry
  // creates its table, SMBIOS finds its table); its failure is printed with
  // PrepareFailureFormat, when given, which takes the service's name and the
  // status (startup_text::PreparationFailed).
  EFI_STATUS (*Prepare)(EFI_SYSTEM_TABLE* SystemTable) = nullptr;
  const CHAR16* PrepareFailureFormat = nullptr;
};

// Fills a newly allocated record: zeroes, the header, then the operations.
template <typename Record>
VOID FillServiceRecord(Record& Installed, EFI_HANDLE ImageHandle, const EFI_GUID& Guid,
                       VOID (*FillOperations)(Record&)) {
  Installed = Record{};
  Installed.Header.Revision = 1;
  Installed.Header.ImageHandle = ImageHandle;
  Installed.Header.Guid = Guid;
  FillOperations(Installed);
}

// Locates the shared services, allocates the record, fills it and installs
// it through InstallProtocol, printing the service's own message on failure.
template <typename Record>
EFI_STATUS InstallService(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable,
                          const ServiceDescriptor<Record>& Service) {
  static_assert(__builtin_offsetof(Record, Header) == 0);
  EFI_BOOT_SERVICES* BootServices = SystemTable->BootServices;

  EFI_GUID CommonGuid = DiagCommonProtocolGuid;
  VOID* Common = nullptr;
  EFI_STATUS Status = BootServices->LocateProtocol(&CommonGuid, nullptr, &Common);
  if (EFI_ERROR(Status)) {
    SystemTable->ConOut->OutputString(SystemTable->ConOut, const_cast<CHAR16*>(startup_text::SharedServicesMissing));
    return Status;
  }
  DiagCommonProtocol* Shared = static_cast<DiagCommonProtocol*>(Common);

  VOID* Raw = nullptr;
  Status = BootServices->AllocatePool(EfiBootServicesData, sizeof(Record), &Raw);
  if (EFI_ERROR(Status)) {
    Shared->Print(startup_text::RecordAllocationFailed, Service.Name, Status);
    return Status;
  }
  Record* Installed = static_cast<Record*>(Raw);
  if (Service.Prepare != nullptr) {
    Status = Service.Prepare(SystemTable);
    if (EFI_ERROR(Status)) {
      if (Service.PrepareFailureFormat != nullptr) Shared->Print(Service.PrepareFailureFormat, Service.Name, Status);
      BootServices->FreePool(Installed);
      return Status;
    }
  }
  FillServiceRecord(*Installed, ImageHandle, Service.Guid, Service.FillOperations);
  *Service.ModuleRecord = Installed;

  EFI_HANDLE Handle = ImageHandle;
  EFI_GUID Guid = Service.Guid;
  Status = Shared->InstallProtocol(Shared, &Handle, &Guid, reinterpret_cast<VOID**>(Service.ModuleRecord),
                                   Service.Unload);
  if (EFI_ERROR(Status)) {
    Shared->Print(startup_text::InstallationFailed, Service.Name, Status);
    BootServices->FreePool(Installed);
    *Service.ModuleRecord = nullptr;
    return Status;
  }
  return EFI_SUCCESS;
}

// The clean-up operation's body: frees the module's record, if any, and
// clears the module's pointer to it.
template <typename Record>
EFI_STATUS ReleaseServiceRecord(EFI_BOOT_SERVICES* BootServices, Record*& ModuleRecord) {
  if (ModuleRecord == nullptr) return EFI_SUCCESS;
  EFI_STATUS Status = BootServices->FreePool(ModuleRecord);
  ModuleRecord = nullptr;
  return Status;
}

}  // namespace tarvik
