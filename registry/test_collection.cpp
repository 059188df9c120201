// The test registry: a table of up to 100 module records, in order of
// registration. Only the last entry can be removed, so an index is stable.
#include "registry/test_collection_protocol.h"

#include "core/pool.h"

namespace tarvik {
namespace {

constinit TestCollectionProtocol* CollectionRecord = nullptr;

// The module table, created on first use.
constinit TestModuleProtocol** Modules = nullptr;
constinit UINT64 ModuleCount = 0;
constinit BOOLEAN Initialised = FALSE;

EFI_STATUS InitialiseTable() {
  if (Initialised) return EFI_SUCCESS;
  PoolPtr<TestModuleProtocol*> Table;
  EFI_STATUS Status = Table.Allocate(TestCollectionCapacity * sizeof(TestModuleProtocol*));
  if (EFI_ERROR(Status)) return Status;
  for (UINT64 I = 0; I < TestCollectionCapacity; ++I) Table.get()[I] = nullptr;
  Modules = Table.release();
  ModuleCount = 0;
  Initialised = TRUE;
  return EFI_SUCCESS;
}

EFIAPI UINT64 GetTestCount() { return ModuleCount; }

// Each operation initialises first but goes on whatever that answers: an
// uninitialised registry has a count of 0 and refuses everything by it.
EFIAPI EFI_STATUS GetTest(UINT64 Index, TestModuleProtocol** Module) {
  InitialiseTable();
  if (Index >= ModuleCount) return EFI_INVALID_PARAMETER;
  if (Module == nullptr) return EFI_ABORTED;
  *Module = Modules[Index];
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS AddTest(TestModuleProtocol* Module) {
  InitialiseTable();
  if (Module == nullptr) return EFI_INVALID_PARAMETER;
  if (!Initialised || ModuleCount == TestCollectionCapacity) return EFI_VOLUME_FULL;
  Modules[ModuleCount++] = Module;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS RemoveLastTest(TestModuleProtocol** Module) {
  InitialiseTable();
  if (ModuleCount == 0) return EFI_NOT_FOUND;
  --ModuleCount;
  TestModuleProtocol* Last = Modules[ModuleCount];
  Modules[ModuleCount] = nullptr;
  if (Module != nullptr) *Module = Last;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS UnloadTestCollection(EFI_HANDLE) {
  if (Modules != nullptr) gBS->FreePool(Modules);
  Modules = nullptr;
  ModuleCount = 0;
  Initialised = FALSE;
  return ReleaseServiceRecord(gBS, CollectionRecord);
}

VOID FillOperations(TestCollectionProtocol& Record) {
  Record.GetTestCount = GetTestCount;
  Record.GetTest = GetTest;
  Record.AddTest = AddTest;
  Record.RemoveLastTest = RemoveLastTest;
}

}  // namespace

EFI_STATUS InstallTestCollection(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  ServiceDescriptor<TestCollectionProtocol> Service = {
      .Guid = TestCollectionProtocolGuid,
      .Name = u"Test Collection Protocol",
      .ModuleRecord = &CollectionRecord,
      .Unload = UnloadTestCollection,
      .FillOperations = FillOperations,
      .Prepare = [](EFI_SYSTEM_TABLE*) { return InitialiseTable(); },
      .PrepareFailureFormat = startup_text::PreparationFailed,
  };
  return InstallService(ImageHandle, SystemTable, Service);
}

}  // namespace tarvik
