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
#include "registry/module_registry_protocol.h"
#include "text/language_protocol.h"

namespace tarvik {

// What a test module keeps of its installation, inside its state record.
struct TestModuleInstallation {
  TestModuleProtocol* Record;        // the published record; null when not installed
  TestCollectionProtocol* Registry;  // the registry the record joined
  CHAR16** Strings;                  // the module's string table, owned; null when none was given
  UINT64 StringCount;
};

// Text Id of the module's string table; empty when there is none.
const CHAR16* InstalledText(const TestModuleInstallation& Installation, UINT64 Id);

// A test module as its installation sees it. The messages take the status.
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
  // A service the module publishes beside its record once that is installed
  // (the storage module's bad-sector tool). It prints its own messages and
  // releases what it took when it fails. *Withdraw TRUE on return takes the
  // module down with it; FALSE leaves the module installed alone. Its status
  // is the installation's.
  EFI_STATUS (*PublishCompanion)(EFI_HANDLE ImageHandle, BOOLEAN* Withdraw) = nullptr;
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
inline VOID ReleaseUnregistered(const TestModuleDescriptor& Module) {
  TestModuleInstallation& State = *Module.Installation;
  if (State.Record != nullptr) gBS->FreePool(State.Record);
  State.Record = nullptr;
  State.Registry = nullptr;
  ReleaseModuleStrings(State);
  if (Module.ReleasePrepared != nullptr) Module.ReleasePrepared();
}

inline VOID ReleaseRegistered(const TestModuleDescriptor& Module) {
  ReleaseTestModule(*Module.Installation);
  if (Module.ReleasePrepared != nullptr) Module.ReleasePrepared();
}

}  // namespace test_module_installer

inline EFI_STATUS InstallTestModule(EFI_HANDLE ImageHandle, const TestModuleDescriptor& Module) {
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

  if (Module.PublishCompanion != nullptr) {
    BOOLEAN Withdraw = FALSE;
    Status = Module.PublishCompanion(ImageHandle, &Withdraw);
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
