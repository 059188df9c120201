#include <gtest/gtest.h>

#include <array>
#include <string>

#include "core/diag_common.h"
#include "core/locate.h"
#include "resultcode/error_code_protocol.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

using Flags = std::array<UINT8, tarvik::ResultCodeAlgorithmFlags>;

Flags flags(std::initializer_list<int> set) {
  Flags f{};
  for (int i : set) f[i] = 1;
  return f;
}

EFI_TIME date(UINT16 year, UINT8 month, UINT8 day) { return EFI_TIME{year, month, day, 0, 0, 0, 0, 0, 0, 0, 0}; }

class ResultCode : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallErrorCode(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    service = tarvik::LocateService<tarvik::ErrorCodeProtocol>(tarvik::ErrorCodeProtocolGuid);
    ASSERT_NE(service, nullptr);
  }
  void TearDown() override {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }

  // The code, or the status in brackets when there is none.
  std::string code(const char16_t* module, const Flags& executed, const Flags& failed, const char16_t* serial,
                   const EFI_TIME& start) {
    CHAR16* text = reinterpret_cast<CHAR16*>(1);
    const EFI_STATUS status =
        service->GenerateResultCode(module, executed.data(), failed.data(), serial, &start, &text);
    if (status != EFI_SUCCESS) {
      EXPECT_EQ(text, nullptr);
      return "[" + std::to_string(status & 0xFF) + "]";
    }
    std::string result = testing_support::utf8(text);
    machine->boot_services()->FreePool(text);
    return result;
  }

  TestMachine machine;
  tarvik::ErrorCodeProtocol* service = nullptr;
};

TEST_F(ResultCode, TheWorkedExamplesComeOutExactly) {
  EXPECT_EQ(code(u"ME", flags({0}), flags({}), u"S1X2Y3Z4", date(2024, 3, 15)), "UME001000-XKUXDI");
  EXPECT_EQ(code(u"HD", flags({0, 1, 2, 3, 4, 5}), flags({2}), u"r9-k2m7q", date(2023, 11, 30)), "UHD01V004-WJ-W7F");
}

TEST_F(ResultCode, FlagsFillBase32DigitsFromTheLowestAlgorithmUp) {
  // Algorithms 10-14 land in position 3, 5-9 in 4, 0-4 in 5.
  EXPECT_EQ(code(u"ME", flags({0, 1, 2, 3, 4}), flags({14}), u"0000000", date(2000, 1, 1)).substr(0, 9), "UME00VG00");
  EXPECT_EQ(code(u"ME", flags({5, 9, 10}), flags({5, 6, 7, 8, 9}), u"0000000", date(2000, 1, 1)).substr(0, 9),
            "UME1H00V0");
}

TEST_F(ResultCode, DateAndSerialCharactersShiftWithinTheirKind) {
  // Year 1999: digit sum 28 is "\", left unchanged; month 12 (C) - 5 = X;
  // day 29 (K) + 3 = N. Serial: z+5 wraps to E, 0-3 wraps to 7, a space stays.
  EXPECT_EQ(code(u"ME", flags({}), flags({}), u"zx0y 00", date(1999, 12, 29)).substr(10), "E\\7X N");
  // Year 9999: sum 36 is "d", made upper-case and shifted to G.
  EXPECT_EQ(code(u"ME", flags({}), flags({}), u"AAAAAAA", date(9999, 1, 1)).substr(11, 1), "G");
  // Year 2999: sum 29 is "]", left unchanged as "[" is (the static_asserts beside the shift).
  EXPECT_EQ(code(u"ME", flags({}), flags({}), u"AAAAAAA", date(2999, 1, 1)).substr(11, 1), "]");
}

TEST_F(ResultCode, ShortOrMissingInputsGiveNoCode) {
  const EFI_TIME start = date(2024, 3, 15);
  EXPECT_EQ(code(u"ME", flags({0}), flags({}), u"S1X2Y3", start), "[21]");  // 6 characters
  EXPECT_EQ(code(u"M", flags({0}), flags({}), u"S1X2Y3Z4", start), "[21]");
  CHAR16* text = nullptr;
  const Flags none{};
  // A machine without a serial number.
  EXPECT_EQ(service->GenerateResultCode(u"ME", none.data(), none.data(), nullptr, &start, &text),
            EFI_INVALID_PARAMETER);
}

}  // namespace
