#include "text/language_protocol.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "core/diag_common.h"
#include "sysinfo/smbios_protocol.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using testing_support::utf8;

// A stand-in SMBIOS service with at most one BIOS language structure (type
// 13): its formatted area, whose byte 0x15 numbers the current language
// among the installable ones.
struct StandInSmbios {
  std::vector<std::string> languages;
  UINT8 current = 1;
  bool has_language_structure = true;
  std::array<UINT8, 0x16> structure{};
};
StandInSmbios* g_smbios = nullptr;

EFIAPI EFI_STATUS stand_in_get_structure(UINT8 type, VOID** record, UINT32 instance) {
  *record = nullptr;
  if (type != 13 || instance != 0 || !g_smbios->has_language_structure) return EFI_INVALID_PARAMETER;
  g_smbios->structure = {};
  g_smbios->structure[0] = 13;
  g_smbios->structure[1] = 0x16;
  g_smbios->structure[4] = static_cast<UINT8>(g_smbios->languages.size());
  g_smbios->structure[0x15] = g_smbios->current;
  *record = g_smbios->structure.data();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS stand_in_get_string(const VOID* record, UINTN number, CHAR16** text) {
  if (record != g_smbios->structure.data() || number == 0 || number > g_smbios->languages.size())
    return EFI_NOT_FOUND;
  const std::string& language = g_smbios->languages[number - 1];
  VOID* buffer = nullptr;
  EFI_STATUS status = tarvik::gBS->AllocatePool(EfiBootServicesData, (language.size() + 1) * sizeof(CHAR16), &buffer);
  if (EFI_ERROR(status)) return status;
  CHAR16* wide = static_cast<CHAR16*>(buffer);
  for (size_t i = 0; i < language.size(); ++i) wide[i] = static_cast<CHAR16>(language[i]);
  wide[language.size()] = 0;
  *text = wide;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS stand_in_unload(EFI_HANDLE) { return EFI_SUCCESS; }

// A table handed out by GetStringTable, freed (strings and array) when it
// goes out of scope.
struct OwnedTable {
  UINT64 count = 0;
  CHAR16** strings = nullptr;
  ~OwnedTable() {
    if (strings == nullptr) return;
    for (UINT64 i = 0; i < count; ++i) tarvik::gBS->FreePool(strings[i]);
    tarvik::gBS->FreePool(strings);
  }
  std::string text(UINT64 identifier) const { return utf8(strings[identifier]); }
};

class Language : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    common = tarvik::gDiagCommon;
    g_smbios = &smbios;
  }
  void TearDown() override {
    common->UninstallAllProtocols(common);
    tarvik::UninstallDiagCommon();
    g_smbios = nullptr;
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }

  void install_smbios_stand_in() {
    smbios_record.Header.Revision = 1;
    smbios_record.Header.ImageHandle = machine->image_handle();
    smbios_record.Header.Guid = tarvik::SmBiosProtocolGuid;
    smbios_record.GetSmbiosStructure = stand_in_get_structure;
    smbios_record.GetSmbiosString = stand_in_get_string;
    EFI_HANDLE handle = machine->image_handle();
    EFI_GUID guid = tarvik::SmBiosProtocolGuid;
    VOID* record = &smbios_record;
    ASSERT_EQ(common->InstallProtocol(common, &handle, &guid, &record, stand_in_unload), EFI_SUCCESS);
  }

  // Installs the service and returns its record as LocateProtocol finds it.
  tarvik::LanguageProtocol* install() {
    EXPECT_EQ(tarvik::InstallLanguage(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    return located();
  }

  tarvik::LanguageProtocol* located() {
    EFI_GUID guid = tarvik::LanguageProtocolGuid;
    VOID* found = nullptr;
    if (machine->boot_services()->LocateProtocol(&guid, nullptr, &found) != EFI_SUCCESS) return nullptr;
    return static_cast<tarvik::LanguageProtocol*>(found);
  }

  TestMachine machine;
  tarvik::DiagCommonProtocol* common = nullptr;
  StandInSmbios smbios;
  tarvik::SmBiosProtocol smbios_record{};
};

TEST_F(Language, InstallationFailuresPrintTheServicesMessages) {
  machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 1;
  EXPECT_EQ(tarvik::InstallLanguage(machine->image_handle(), machine->system_table()), EFI_OUT_OF_RESOURCES);
  machine->faults().fail_allocate_pool_call = 0;
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = tarvik::LanguageProtocolGuid;
  EXPECT_EQ(tarvik::InstallLanguage(machine->image_handle(), machine->system_table()), EFI_OUT_OF_RESOURCES);
  EXPECT_NE(machine.transcript().find("Falha ao alocar memoria para Language Protocol: Out of Resources\r\n"
                                      "Falha ao instalar Language Protocol: Out of Resources\r\n"),
            std::string::npos)
      << machine.transcript();
  EXPECT_EQ(located(), nullptr);
}

TEST_F(Language, DetectsTheFirmwaresCurrentLanguageOnceInstalled) {
  install_smbios_stand_in();
  smbios.languages = {"en|US|iso8859-1", "fr|CA|iso8859-1"};
  smbios.current = 2;
  EXPECT_EQ(install()->GetLanguage(), 4u);
  common->UninstallAllProtocols(common);

  install_smbios_stand_in();
  smbios.languages = {"sv|SE|iso8859-1"};
  smbios.current = 1;
  EXPECT_EQ(install()->GetLanguage(), 0u) << "a code outside the table";
  common->UninstallAllProtocols(common);

  // Without a language structure, or without the SMBIOS service, the
  // language stays the first; the installation succeeds either way.
  install_smbios_stand_in();
  smbios.languages = {"nl|NL|iso8859-1"};
  smbios.has_language_structure = false;
  tarvik::LanguageProtocol* language = install();
  EXPECT_EQ(language->GetLanguage(), 0u);
  language->SetLanguage(u"it");
  common->UninstallAllProtocols(common);  // the stand-in goes too
  EXPECT_EQ(install()->GetLanguage(), 0u);
}

TEST_F(Language, SetLanguageComparesTheFirstTwoCharacters) {
  tarvik::LanguageProtocol* language = install();
  EXPECT_EQ(language->SetLanguage(nullptr), EFI_ABORTED);
  const std::vector<std::pair<const char16_t*, UINT64>> cases = {
      {u"pt-BR", 1}, {u"de|DE", 3}, {u"nl", 7}, {u"n", 0}, {u"", 0}, {u"NL", 0}};
  for (const auto& [code, index] : cases) {
    language->SetLanguage(u"nl");
    EXPECT_EQ(language->SetLanguage(code), EFI_SUCCESS);
    EXPECT_EQ(language->GetLanguage(), index) << utf8(code);
  }
}

TEST_F(Language, StringTablesAreNewCopiesOwnedByTheCaller) {
  tarvik::LanguageProtocol* language = install();
  OwnedTable interface, again;
  ASSERT_EQ(language->GetStringTable(u"Interface", &interface.count, &interface.strings), EFI_SUCCESS);
  ASSERT_EQ(language->GetStringTable(u"Interface", &again.count, &again.strings), EFI_SUCCESS);
  ASSERT_EQ(interface.count, 160u);
  EXPECT_NE(interface.strings, again.strings);
  EXPECT_NE(interface.strings[0], again.strings[0]);

  EXPECT_EQ(interface.text(0), "Tarvik Diagnostic");
  EXPECT_EQ(interface.text(3), "Tests");
  EXPECT_EQ(interface.text(149), "Tests");
  EXPECT_NE(interface.strings[3], interface.strings[149]) << "each entry is its own copy";
  EXPECT_EQ(interface.text(9), "");
  EXPECT_EQ(interface.text(159), "");
  EXPECT_EQ(interface.text(21), "ESC = exit  Arrow Keys = change option  Space = select/deselect  ENTER = run test");
  EXPECT_EQ(interface.text(37), "ESC = exit  Up arrow = scroll up  Down arrow = scroll down  F3 = view log");
  EXPECT_EQ(interface.text(154), "Warning");
  EXPECT_EQ(language->GetString(96, interface.strings), interface.strings[96]);
  EXPECT_EQ(utf8(language->GetString(96, interface.strings)), "ON QUEUE");

  OwnedTable memory, storage;
  ASSERT_EQ(language->GetStringTable(u"Memory", &memory.count, &memory.strings), EFI_SUCCESS);
  ASSERT_EQ(language->GetStringTable(u"Storage", &storage.count, &storage.strings), EFI_SUCCESS);
  ASSERT_EQ(memory.count, 112u);
  EXPECT_EQ(memory.text(33), "Advanced Integrity Test");
  EXPECT_EQ(memory.text(102), "Read value");
  EXPECT_EQ(memory.text(111), "");
  ASSERT_EQ(storage.count, 144u);
  EXPECT_EQ(storage.text(105), "Bad sectors found =\t");
  EXPECT_EQ(storage.text(104), "");
  EXPECT_EQ(storage.text(142), "Error reading sector");
  const std::string advice = storage.text(88);
  EXPECT_EQ(advice.substr(0, 76), "Problems have been identified on one or more of your storage devices.Backup ");
  EXPECT_EQ(advice.substr(advice.size() - 46), "select the Check and Recover Bad Sectors test.");
  EXPECT_EQ(advice.size(), 314u) << "the long text is stored in pieces";
}

TEST_F(Language, TablesAreNamedByTheirFirstThreeCharactersOnly) {
  tarvik::LanguageProtocol* language = install();
  {
    OwnedTable table;
    EXPECT_EQ(language->GetStringTable(u"Storage devices", &table.count, &table.strings), EFI_SUCCESS);
    EXPECT_EQ(table.count, 144u);
  }
  CHAR16* sentinel[1] = {nullptr};
  for (const char16_t* name : {u"interface", u"In", u"Log"}) {
    UINT64 count = 7;
    CHAR16** table = sentinel;
    EXPECT_EQ(language->GetStringTable(name, &count, &table), EFI_SUCCESS) << utf8(name);
    EXPECT_EQ(count, 7u) << utf8(name);
    EXPECT_EQ(table, sentinel) << utf8(name);
  }
}

TEST_F(Language, AFailedAllocationFreesWhatTheTableHadSoFar) {
  tarvik::LanguageProtocol* language = install();
  const size_t before = machine->memory().outstanding_pools();
  // The pointer array is the first allocation, then one per identifier.
  for (UINT64 failing : {1u, 2u, 50u, 145u}) {
    machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + failing;
    UINT64 count = 7;
    CHAR16** table = nullptr;
    EXPECT_EQ(language->GetStringTable(u"Storage", &count, &table), EFI_OUT_OF_RESOURCES) << failing;
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(machine->memory().outstanding_pools(), before) << failing;
  }
}

}  // namespace
