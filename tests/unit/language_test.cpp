#include "text/language_protocol.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "core/diag_common.h"
#include "core/locate.h"
#include "sysinfo/smbios_protocol.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using testing_support::utf8;

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

tarvik::LanguageProtocol* located() {
  return tarvik::LocateService<tarvik::LanguageProtocol>(tarvik::LanguageProtocolGuid);
}

class Language : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallLanguage(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    language = located();
  }
  void TearDown() override {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }
  TestMachine machine;
  tarvik::LanguageProtocol* language = nullptr;
};

// The firmware's current language from the SMBIOS language structure; a
// code outside the table, no language structure and no SMBIOS service all
// give the first. Each case ends on another language, which the next
// installation must not keep.
TEST(LanguageInstall, DetectsTheFirmwaresCurrentLanguageAndStartsFromTheFirst) {
  struct Case { std::vector<std::string> installable; int current; bool smbios; UINT64 index; };
  const Case cases[] = {{{"en|US|iso8859-1", "fr|CA|iso8859-1"}, 1, true, 4},
                        {{"sv|SE|iso8859-1"}, 0, true, 0},
                        {{}, 0, true, 0},
                        {{"fr|CA|iso8859-1"}, 0, false, 0}};
  for (const Case& c : cases) {
    TestMachine machine("", [&](hostfw::Profile& p) { p.language = {c.installable, c.current}; });
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    if (c.smbios) {
      ASSERT_EQ(tarvik::InstallSmBios(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    }
    ASSERT_EQ(tarvik::InstallLanguage(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    EXPECT_EQ(located()->GetLanguage(), c.index) << c.installable.size() << " languages, smbios " << c.smbios;
    located()->SetLanguage(u"it");
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }
}

TEST_F(Language, StringTablesAreNewCopiesOwnedByTheCaller) {
  OwnedTable interface, again, memory, storage;
  ASSERT_EQ(language->GetStringTable(u"Interface", &interface.count, &interface.strings), EFI_SUCCESS);
  ASSERT_EQ(language->GetStringTable(u"Interface", &again.count, &again.strings), EFI_SUCCESS);
  ASSERT_EQ(language->GetStringTable(u"Memory", &memory.count, &memory.strings), EFI_SUCCESS);
  ASSERT_EQ(language->GetStringTable(u"Storage", &storage.count, &storage.strings), EFI_SUCCESS);
  ASSERT_EQ(std::vector<UINT64>({interface.count, memory.count, storage.count}), std::vector<UINT64>({160, 112, 144}));
  EXPECT_NE(interface.strings, again.strings);
  EXPECT_NE(interface.strings[0], again.strings[0]);
  // The texts themselves are read on the screens.
  EXPECT_EQ(interface.text(3) + "|" + interface.text(149), "Tests|Tests");
  EXPECT_NE(interface.strings[3], interface.strings[149]) << "each entry is its own copy";
  EXPECT_EQ(interface.text(9) + interface.text(159) + memory.text(111) + storage.text(104), "") << "gaps are empty";
  EXPECT_EQ(language->GetString(96, interface.strings), interface.strings[96]);
}

TEST_F(Language, AFailedAllocationFreesWhatTheTableHadSoFar) {
  const size_t before = machine->memory().outstanding_pools();
  // The pointer array is the first allocation, then one per identifier.
  for (UINT64 failing : {1u, 2u, 50u, 145u}) {
    machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + failing;
    UINT64 count = 7;
    CHAR16** table = nullptr;
    EXPECT_EQ(language->GetStringTable(u"Storage", &count, &table), EFI_OUT_OF_RESOURCES) << failing;
    EXPECT_EQ(std::pair(count, table), std::pair(UINT64{7}, static_cast<CHAR16**>(nullptr)));
    EXPECT_EQ(machine->memory().outstanding_pools(), before) << failing;
  }
}

}  // namespace
