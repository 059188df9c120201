// The one installation path of a test module: locate the shared services
// and the registry, prepare, allocate and fill the record, fetch the
// module's string table, AddTest, InstallProtocol, then publish the
// module's companion service if it has one. Each failure prints the
// module's own message (data in its descriptor) and undoes every step
// before it, so a module that does not install leaves nothing registered,
// installed or allocated.
#pragma once

#include "core/diag_common.h"
#include "core/locate.h"
#include "core/protocol_registry.h"
#include "core/service_record.h"
#include "core/startup_texts.h"
#include "registry/test_collection_protocol.h"
#include "text/language_protocol.h"

namespace tarvik {

// What a test module keeps of its installation, inside its state record.
struct TestModuleInstallation {
  TestModuleProtocol* Record;        // the published record; null when not installed
  TestCollectionProtocol* Registry;  // the registry the record joined
  CHAR16** Strings;                  // the module's string table, owned; null when none was given
  UINT64 StringCount;
};

// A service a test module publishes after its own record and that stands or
// falls with it (the storage module's bad-sector tool, published only when a
// rotating drive exists). Record starts with a ServiceRecordHeader named
// Header.
template <typename Record>
struct CompanionService {
  EFI_GUID Guid;
  Record** ModuleRecord;           // the owner's pointer to the record
  EFI_IMAGE_UNLOAD Unload;         // frees the record and whatever Gather took
  VOID (*FillOperations)(Record&);
  // Gathers what the companion serves; *Offer FALSE when there is nothing to
  // offer (Unload then releases what it took, and the module stays alone).
  // A failure releases what it took itself, prints
  // GatherFailureMessage and becomes the installation's status, the module
  // staying installed without its companion.
  EFI_STATUS (*Gather)(BOOLEAN* Offer);
  const CHAR16* GatherFailureMessage;
  // Printed with the status when the record cannot be installed; the module
  // is then withdrawn too. A record that cannot be allocated is silent.
  const CHAR16* InstallFailureFormat;
};

// The companion type of a module that has none.
struct NoCompanion {
  ServiceRecordHeader Header;
};

// A test module as its installation sees it. The messages take the status.
template <typename CompanionRecord = NoCompanion>
struct TestModuleDescriptor {
  EFI_GUID Guid;
  TestModuleInstallation* Installation;
  EFI_IMAGE_UNLOAD Unload;                 // the module's clean-up at teardown
  VOID (*FillOperations)(TestModuleProtocol&);
  const CHAR16* StringTableName;           // "Memory", "Storage"; null for none
  const CHAR16* AddTestFailureFormat;      // the registry refused the record
  const CHAR16* InstallFailureFormat;      // InstallProtocol refused it
  // Work before the record is allocated (the storage module finds its
  // drives). It prints its own messages and releases what it took when it
  // fails; ReleasePrepared undoes it when a later step fails.
  EFI_STATUS (*Prepare)() = nullptr;
  VOID (*ReleasePrepared)() = nullptr;
  // Work once the module is installed for good (the memory module reads its
  // SMBIOS modules). Cannot fail.
  VOID (*Complete)() = nullptr;
  const CompanionService<CompanionRecord>* Companion = nullptr;
};

// Frees a string table handed out by the text service and clears it.
VOID ReleaseModuleStrings(TestModuleInstallation& Installation);

// The common part of a module's clean-up, and of the rollback of one that
// was registered: takes the record back out of the registry (the last
// entry), frees it and the string table. Returns the status of freeing the
// record (EFI_SUCCESS when there was none).
EFI_STATUS ReleaseTestModule(TestModuleInstallation& Installation);

namespace test_module_installer {

// Undoes allocation, the string table and Prepare of a module whose record
// is not registered.
template <typename CompanionRecord>
VOID ReleaseUnregistered(const TestModuleDescriptor<CompanionRecord>& Module) {
  TestModuleInstallation& State = *Module.Installation;
  if (State.Record != nullptr) gBS->FreePool(State.Record);
  State.Record = nullptr;
  State.Registry = nullptr;
  ReleaseModuleStrings(State);
  if (Module.ReleasePrepared != nullptr) Module.ReleasePrepared();
}

template <typename CompanionRecord>
VOID ReleaseRegistered(const TestModuleDescriptor<CompanionRecord>& Module) {
  ReleaseTestModule(*Module.Installation);
  if (Module.ReleasePrepared != nullptr) Module.ReleasePrepared();
}

// Publishes the companion. Returns the installation's status; *Withdraw is
// TRUE when the module has to go with a companion that failed.
template <typename Record>
EFI_STATUS PublishCompanion(EFI_HANDLE ImageHandle, DiagCommonProtocol& Shared,
                            const CompanionService<Record>& Service, BOOLEAN* Withdraw) {
  static_assert(__builtin_offsetof(Record, Header) == 0);
  *Withdraw = FALSE;
  BOOLEAN Offer = FALSE;
  EFI_STATUS Status = Service.Gather(&Offer);
  if (EFI_ERROR(Status)) {
    Shared.Print(Service.GatherFailureMessage);
    return Status;
  }
  if (!Offer) {
    Service.Unload(ImageHandle);  // releases whatever Gather took
    return EFI_SUCCESS;
  }

  *Withdraw = TRUE;
  VOID* Raw = nullptr;
  Status = gBS->AllocatePool(EfiBootServicesData, sizeof(Record), &Raw);
  if (EFI_ERROR(Status)) {
    Service.Unload(ImageHandle);
    return Status;
  }
  *Service.ModuleRecord = static_cast<Record*>(Raw);
  FillServiceRecord(**Service.ModuleRecord, ImageHandle, Service.Guid, Service.FillOperations);

  EFI_HANDLE Handle = ImageHandle;
  EFI_GUID Guid = Service.Guid;
  Status = Shared.InstallProtocol(&Shared, &Handle, &Guid, reinterpret_cast<VOID**>(Service.ModuleRecord),
                                  Service.Unload);
  if (EFI_ERROR(Status)) {
    Shared.Print(Service.InstallFailureFormat, Status);
    Service.Unload(ImageHandle);
    return Status;
  }
  *Withdraw = FALSE;
  return EFI_SUCCESS;
}

}  // namespace test_module_installer

template <typename CompanionRecord>
EFI_STATUS InstallTestModule(EFI_HANDLE ImageHandle, const TestModuleDescriptor<CompanionRecord>& Module) {
  using namespace test_module_installer;
  TestModuleInstallation& State = *Module.Installation;
  DiagCommonProtocol* Shared = LocateService<DiagCommonProtocol>(DiagCommonProtocolGuid);
  if (Shared == nullptr) return EFI_ABORTED;
  State.Registry = LocateService<TestCollectionProtocol>(TestCollectionProtocolGuid);
  if (State.Registry == nullptr) {
    Shared->Print(startup_text::TestRegistryMissing);
    return EFI_ABORTED;
  }
  if (Module.Prepare != nullptr) {
    const EFI_STATUS Status = Module.Prepare();
    if (EFI_ERROR(Status)) return Status;
  }

  VOID* Raw = nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, sizeof(TestModuleProtocol), &Raw))) {
    ReleaseUnregistered(Module);
    return EFI_ABORTED;
  }
  State.Record = static_cast<TestModuleProtocol*>(Raw);
  *State.Record = TestModuleProtocol{};
  State.Record->Revision = 1;
  State.Record->ImageHandle = ImageHandle;
  State.Record->ModuleGuid = Module.Guid;
  Module.FillOperations(*State.Record);

  // Without the text service the module runs with empty texts.
  LanguageProtocol* Language =
      Module.StringTableName != nullptr ? LocateService<LanguageProtocol>(LanguageProtocolGuid) : nullptr;
  if (Language != nullptr && EFI_ERROR(Language->GetStringTable(Module.StringTableName, &State.StringCount,
                                                                &State.Strings))) {
    State.Strings = nullptr;
    State.StringCount = 0;
  }

  EFI_STATUS Status = State.Registry->AddTest(State.Record);
  if (EFI_ERROR(Status)) {
    Shared->Print(Module.AddTestFailureFormat, Status);
    ReleaseUnregistered(Module);
    return Status;
  }
  EFI_HANDLE Handle = ImageHandle;
  EFI_GUID Guid = Module.Guid;
  Status = Shared->InstallProtocol(Shared, &Handle, &Guid, reinterpret_cast<VOID**>(&State.Record), Module.Unload);
  if (EFI_ERROR(Status)) {
    Shared->Print(Module.InstallFailureFormat, Status);
    ReleaseRegistered(Module);
    return Status;
  }

  if (Module.Companion != nullptr) {
    BOOLEAN Withdraw = FALSE;
    Status = PublishCompanion(ImageHandle, *Shared, *Module.Companion, &Withdraw);
    if (Withdraw) {
      // The record is published: take it off its handle before it is freed.
      WithdrawProtocol(reinterpret_cast<ServiceRecordHeader*>(State.Record));
      ReleaseRegistered(Module);
      return Status;
    }
  }
  if (Module.Complete != nullptr) Module.Complete();
  return Status;
}

}  // namespace tarvik
