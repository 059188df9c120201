#include "core/diag_common.h"

#include <gtest/gtest.h>

#include <string>

#include "core/locate.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using testing_support::utf8;

TEST(DiagCommon, InstallsItsRecordWithEveryOperationWired) {
  TestMachine machine;
  ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  auto* common = tarvik::LocateService<tarvik::DiagCommonProtocol>(tarvik::DiagCommonProtocolGuid);
  ASSERT_NE(common, nullptr);
  EXPECT_EQ(common, tarvik::gDiagCommon);

  // Each slot through the record, as other modules use them; the string
  // operations write their terminator and nothing past it.
  CHAR16 text[16];
  for (CHAR16& c : text) c = u'#';
  EXPECT_EQ(common->SPrint(text, sizeof text, u"%d-%s", 7, u"x"), 3u);
  EXPECT_EQ(utf8(text), "7-x");
  EXPECT_EQ(utf8(common->StatusToString(EFI_NOT_FOUND)), "Not Found");
  common->StrCpy(text, u"Log");
  common->StrCat(text, u".log");
  EXPECT_EQ(common->StrCmp(text, u"Log.log"), 0);
  EXPECT_EQ(common->StrLen(text), 7u);
  EXPECT_EQ(text[8], u'#') << "nothing is written past the terminator";
  EXPECT_EQ(common->UninstallAllProtocols(common), EFI_SUCCESS);
  EXPECT_EQ(common->Print(u"%s\n", u"hello"), 7u);  // "hello\r\n"
  EXPECT_NE(machine.transcript().find("hello\r\n"), std::string::npos);

  tarvik::UninstallDiagCommon();
  EXPECT_EQ(tarvik::LocateService<tarvik::DiagCommonProtocol>(tarvik::DiagCommonProtocolGuid), nullptr);
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

// The record that cannot be had is checked with the start-up
// (Startup.WithoutTheSharedServicesNothingElseIsTried).
TEST(DiagCommon, ARefusedInstallationPrintsTheStatusTextAndFreesTheRecord) {
  TestMachine machine;
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = tarvik::DiagCommonProtocolGuid;
  EXPECT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_ABORTED);
  EXPECT_NE(machine.transcript().find("ERROR: Out of Resources\r\n"), std::string::npos) << machine.transcript();
  EXPECT_EQ(tarvik::gDiagCommon, nullptr);
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

TEST(DiagCommon, PrintCutsAt320Characters) {
  TestMachine machine;
  std::u16string long_text(400, u'x');
  long_text[319] = u'A';
  long_text[320] = u'B';
  EXPECT_EQ(tarvik::Print(u"%s", long_text.c_str()), 320u);
  const std::string shown = machine.transcript();
  EXPECT_EQ(shown.size(), 320u);
  EXPECT_EQ(shown.back(), 'A');
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

TEST(DiagCommon, SPrintTakesItsSizeInBytes) {
  CHAR16 buffer[8];
  for (CHAR16& c : buffer) c = u'#';
  EXPECT_EQ(tarvik::SPrint(buffer, 8, u"%s", u"abcdef"), 3u);  // 4 characters of room
  EXPECT_EQ(utf8(buffer), "abc");
  EXPECT_EQ(buffer[4], u'#');
  EXPECT_EQ(tarvik::SPrint(buffer, 9, u"%s", u"abcdef"), 3u) << "an odd byte does not make room for a character";
  EXPECT_EQ(tarvik::SPrint(buffer, 1, u"%s", u"abcdef"), 0u);
  EXPECT_EQ(buffer[0], u'a') << "a buffer too small for a terminator is left alone";
  EXPECT_EQ(tarvik::SPrint(buffer, 2, u"%s", u"abcdef"), 0u);
  EXPECT_EQ(buffer[0], 0);
}

}  // namespace
