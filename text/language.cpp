// Text resources: hands out whole string tables as new copies, and keeps the
// firmware's language (from the SMBIOS language structure) as an index.
#include "core/locate.h"
#include "core/pool.h"
#include "core/pool_text.h"
#include "sysinfo/smbios_protocol.h"
#include "text/language_protocol.h"
#include "text/string_tables.h"

namespace tarvik {
namespace {

constinit LanguageProtocol* LanguageRecord = nullptr;
constinit UINT64 LanguageIndex = 0;

// Two-letter codes by language index; any other code is index 0.
constexpr const CHAR16* LanguageCodes[] = {u"en", u"pt", u"zh", u"de", u"fr", u"it", u"es", u"nl"};

// SMBIOS type 13 (BIOS Language Information): the number of the current
// language's string stands at this offset.
constexpr UINT8 BiosLanguageType = 13;
constexpr UINTN CurrentLanguageOffset = 0x15;

EFIAPI EFI_STATUS SetLanguage(const CHAR16* Code) {
  if (Code == nullptr) return EFI_ABORTED;
  LanguageIndex = 0;
  for (UINT64 Index = 0; Index < sizeof(LanguageCodes) / sizeof(LanguageCodes[0]); ++Index) {
    if (Code[0] == LanguageCodes[Index][0] && Code[1] == LanguageCodes[Index][1]) {
      LanguageIndex = Index;
      break;
    }
  }
  return EFI_SUCCESS;
}

EFIAPI UINT64 GetLanguage() { return LanguageIndex; }

// The table whose name starts with the same three characters as Name.
const StringTableSource* FindTable(const CHAR16* Name) {
  for (const StringTableSource& Table : StringTableSources) {
    UINTN Same = 0;
    while (Same < 3 && Name[Same] != 0 && Name[Same] == Table.Name[Same]) ++Same;
    if (Same == 3) return &Table;
  }
  return nullptr;
}

// Frees the first Filled strings of Table.
VOID FreeStrings(CHAR16** Table, UINT64 Filled) {
  for (UINT64 Identifier = 0; Identifier < Filled; ++Identifier) gBS->FreePool(Table[Identifier]);
}

EFIAPI EFI_STATUS GetStringTable(const CHAR16* Name, UINT64* Count, CHAR16*** Table) {
  if (Name == nullptr || Count == nullptr || Table == nullptr) return EFI_INVALID_PARAMETER;
  const StringTableSource* Source = FindTable(Name);
  if (Source == nullptr) return EFI_SUCCESS;

  PoolPtr<CHAR16*> Strings;
  EFI_STATUS Status = Strings.Allocate(Source->Count * sizeof(CHAR16*));
  if (EFI_ERROR(Status)) return Status;
  UINTN Next = 0;  // the next listed text
  for (UINT64 Identifier = 0; Identifier < Source->Count; ++Identifier) {
    const CHAR16* Text = u"";
    if (Next < Source->TextCount && Source->Texts[Next].Identifier == Identifier) Text = Source->Texts[Next++].Text;
    Status = CopyTextToPool(Text, &Strings.get()[Identifier]);
    if (EFI_ERROR(Status)) {
      FreeStrings(Strings.get(), Identifier);
      return Status;
    }
  }
  *Count = Source->Count;
  *Table = Strings.release();
  return EFI_SUCCESS;
}

EFIAPI CHAR16* GetString(UINT64 Identifier, CHAR16** Table) { return Table[Identifier]; }

// Sets the language from the firmware's current language in SMBIOS.
EFI_STATUS DetectLanguage() {
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  if (SmBios == nullptr) return EFI_ABORTED;

  VOID* Structure = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosStructure(BiosLanguageType, &Structure, 0)) || Structure == nullptr)
    return EFI_ABORTED;
  const UINT8* Bytes = static_cast<const UINT8*>(Structure);
  // Byte 1 is the length of the formatted area; a shorter structure has no
  // current-language byte.
  if (Bytes[1] <= CurrentLanguageOffset) return EFI_ABORTED;

  CHAR16* Raw = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosString(Structure, Bytes[CurrentLanguageOffset], &Raw))) return EFI_ABORTED;
  PoolPtr<CHAR16> Code(Raw);
  return EFI_ERROR(SetLanguage(Code.get())) ? EFI_ABORTED : EFI_SUCCESS;
}

EFIAPI EFI_STATUS UnloadLanguage(EFI_HANDLE) { return ReleaseServiceRecord(gBS, LanguageRecord); }

VOID FillOperations(LanguageProtocol& Record) {
  Record.SetLanguage = SetLanguage;
  Record.GetLanguage = GetLanguage;
  Record.GetStringTable = GetStringTable;
  Record.GetString = GetString;
}

}  // namespace

EFI_STATUS InstallLanguage(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  ServiceDescriptor<LanguageProtocol> Service = {
      .Guid = LanguageProtocolGuid,
      .Name = u"Language Protocol",
      .ModuleRecord = &LanguageRecord,
      .Unload = UnloadLanguage,
      .FillOperations = FillOperations,
  };
  EFI_STATUS Status = InstallService(ImageHandle, SystemTable, Service);
  if (EFI_ERROR(Status)) return Status;
  // Each installation starts from the first language and stays there when
  // the firmware names none.
  LanguageIndex = 0;
  DetectLanguage();
  return EFI_SUCCESS;
}

}  // namespace tarvik
