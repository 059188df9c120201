#include "core/status_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::u16string Text(EFI_STATUS Status) { return tarvik::StatusToString(Status); }

TEST(StatusToString, IndexesByNumberWithoutErrorBit) {
  EXPECT_EQ(Text(EFI_SUCCESS), u"Success");
  EXPECT_EQ(Text(EFI_LOAD_ERROR), u"Load Error");
  EXPECT_EQ(Text(0x800000000000000BULL), u"Volume Full");
  EXPECT_EQ(Text(EFI_NO_MAPPING), u"No mapping");
  EXPECT_EQ(Text(EFI_TIMEOUT), u"Time out");
  EXPECT_EQ(Text(EFI_END_OF_MEDIA), u"End of Media");
  EXPECT_EQ(Text(EFIERR(29)), u"Unknown error #39");
  EXPECT_EQ(Text(EFIERR(30)), u"Unknown error #40");
  EXPECT_EQ(Text(EFI_END_OF_FILE), u"End of File");
  EXPECT_EQ(Text(EFI_INVALID_LANGUAGE), u"Invalid Language");
  EXPECT_EQ(Text(EFI_ERROR_BIT), u"Success");  // the error bit alone leaves index 0
  // Warnings get the text of the error with the same number.
  EXPECT_EQ(Text(EFI_WARN_UNKNOWN_GLYPH), u"Load Error");
  EXPECT_EQ(Text(EFI_WARN_RESET_REQUIRED), u"Device Error");
  EXPECT_EQ(Text(29), u"Unknown error #39");
}

TEST(StatusToString, BeyondTheTable) {
  EXPECT_EQ(Text(EFI_COMPROMISED_DATA), u"Unknown error code");  // 33
  EXPECT_EQ(Text(EFI_HTTP_ERROR), u"Unknown error code");
  EXPECT_EQ(Text(33), u"Unknown error code");
  EXPECT_EQ(Text(0x100000001ULL), u"Unknown error code");  // not cut to 32 bits
}

}  // namespace
