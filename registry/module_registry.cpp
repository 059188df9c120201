// The test registry: a table of up to 100 module records, in order of
// registration. Only the last entry can be removed, so an index is stable.
#include "registry/module_registry_protocol.h"

#include "core/pool.h"

namespace tarvik {
namespace {

// The registry's state: its published record and the module table, which is
// created on first use.
struct TestRegistry {
  TestCollectionProtocol* Record;
  TestModuleProtocol** Modules;
  UINT64 ModuleCount;
  BOOLEAN Initialised;
};
constinit TestRegistry Registry = {};

EFI_STATUS InitialiseTable() {
  if (Registry.Initialised) return EFI_SUCCESS;
  PoolPtr<TestModuleProtocol*> Table;
  EFI_STATUS Status = Table.Allocate(TestCollectionCapacity * sizeof(TestModuleProtocol*));
  if (EFI_ERROR(Status)) return Status;
  for (UINT64 I = 0; I < TestCollectionCapacity; ++I) Table.get()[I] = nullptr;
  Registry.Modules = Table.release();
  Registry.ModuleCount = 0;
  Registry.Initialised = TRUE;
  return EFI_SUCCESS;
}

EFIAPI UINT64 GetTestCount() { return Registry.ModuleCount; }

// Each operation initialises first but goes on whatever that answers: an
// uninitialised registry has a count of 0 and refuses everything by it.
EFIAPI EFI_STATUS GetTest(UINT64 Index, TestModuleProtocol** Module) {
  InitialiseTable();
  if (Index >= Registry.ModuleCount) return EFI_INVALID_PARAMETER;
  if (Module == nullptr) return EFI_ABORTED;
  *Module = Registry.Modules[Index];
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS AddTest(TestModuleProtocol* Module) {
  InitialiseTable();
  if (Module == nullptr) return EFI_INVALID_PARAMETER;
  if (!Registry.Initialised || Registry.ModuleCount == TestCollectionCapacity) return EFI_VOLUME_FULL;
  Registry.Modules[Registry.ModuleCount++] = Module;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS RemoveLastTest(TestModuleProtocol** Module) {
  InitialiseTable();
  if (Registry.ModuleCount == 0) return EFI_NOT_FOUND;
  --Registry.ModuleCount;
  TestModuleProtocol* Last = Registry.Modules[Registry.ModuleCount];
  Registry.Modules[Registry.ModuleCount] = nullptr;
  if (Module != nullptr) *Module = Last;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS UnloadTestCollection(EFI_HANDLE) {
  if (Registry.Modules != nullptr) gBS->FreePool(Registry.Modules);
  Registry.Modules = nullptr;
  Registry.ModuleCount = 0;
  Registry.Initialised = FALSE;
  return ReleaseServiceRecord(gBS, Registry.Record);
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
      .ModuleRecord = &Registry.Record,
      .Unload = UnloadTestCollection,
      .FillOperations = FillOperations,
      .Prepare = [](EFI_SYSTEM_TABLE*) { return InitialiseTable(); },
      .PrepareFailureFormat = startup_text::PreparationFailed,
  };
  return InstallService(ImageHandle, SystemTable, Service);
}

}  // namespace tarvik
