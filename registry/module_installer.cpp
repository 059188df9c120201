#include "registry/module_installer.h"

namespace tarvik {

VOID ReleaseModuleStrings(TestModuleInstallation& Installation) {
  if (Installation.Strings != nullptr) {
    for (UINT64 I = 0; I < Installation.StringCount; ++I)
      if (Installation.Strings[I] != nullptr) gBS->FreePool(Installation.Strings[I]);
    gBS->FreePool(Installation.Strings);
  }
  Installation.Strings = nullptr;
  Installation.StringCount = 0;
}

EFI_STATUS ReleaseTestModule(TestModuleInstallation& Installation) {
  // A module's record is the registry's last entry when it goes: modules
  // leave in the reverse order of their registration.
  if (Installation.Registry != nullptr && Installation.Record != nullptr) Installation.Registry->RemoveLastTest(nullptr);
  Installation.Registry = nullptr;
  const EFI_STATUS Status = ReleaseServiceRecord(gBS, Installation.Record);
  ReleaseModuleStrings(Installation);
  return Status;
}

const CHAR16* InstalledText(const TestModuleInstallation& Installation, UINT64 Id) {
  if (Installation.Strings == nullptr || Id >= Installation.StringCount || Installation.Strings[Id] == nullptr)
    return u"";
  return Installation.Strings[Id];
}

}  // namespace tarvik
