#include "core/status_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::u16string Text(EFI_STATUS Status) { return tarvik::StatusToString(Status); }

TEST(StatusToString, IndexesByNumberWithoutErrorBitUpToTheTablesEnd) {
  EXPECT_EQ(Text(EFI_SUCCESS) + u"|" + Text(EFI_LOAD_ERROR) + u"|" + Text(EFI_INVALID_LANGUAGE),
            u"Success|Load Error|Invalid Language");
  EXPECT_EQ(Text(EFIERR(29)) + u"|" + Text(EFIERR(30)) + u"|" + Text(29),
            u"Unknown error #39|Unknown error #40|Unknown error #39");
  // Warnings get the text of the error with the same number.
  EXPECT_EQ(Text(EFI_WARN_UNKNOWN_GLYPH) + u"|" + Text(EFI_WARN_RESET_REQUIRED), u"Load Error|Device Error");
  for (EFI_STATUS beyond : {EFI_COMPROMISED_DATA, EFI_HTTP_ERROR, EFI_STATUS{33}, EFI_STATUS{0x100000001ULL}})
    EXPECT_EQ(Text(beyond), u"Unknown error code") << beyond;  // 33 on, and not cut to 32 bits
}

}  // namespace
