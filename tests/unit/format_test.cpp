#include "core/format.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Passes its arguments to FormatV the way the application does: as EFIAPI
// variable arguments.
EFIAPI UINTN Fmt(CHAR16* Buffer, UINTN Capacity, const CHAR16* Format, ...) {
  VA_LIST Args;
  VA_START(Args, Format);
  UINTN Count = tarvik::FormatV(Buffer, Capacity, Format, Args);
  VA_END(Args);
  return Count;
}

// Formats into a roomy buffer and checks that the returned count matches
// the terminated text.
template <typename... Args>
std::u16string F(const CHAR16* Format, Args... Values) {
  CHAR16 Buffer[256];
  UINTN Count = Fmt(Buffer, 256, Format, Values...);
  std::u16string Text(Buffer);
  EXPECT_EQ(Count, Text.size()) << "format " << testing::PrintToString(std::u16string(Format));
  return Text;
}

TEST(Format, StringsAndCharacters) {
  EXPECT_EQ(F(u"plain text, 100%%"), u"plain text, 100%");
  EXPECT_EQ(F(u"[%s][%s]", u"abc", static_cast<const CHAR16*>(nullptr)), u"[abc][<null string>]");
  EXPECT_EQ(F(u"[%a][%a]", "narrow", static_cast<const CHAR8*>(nullptr)), u"[narrow][<null string>]");
  EXPECT_EQ(F(u"[%a]", "\xE9"), u"[\u00E9]");  // bytes widen without sign extension
  EXPECT_EQ(F(u"[%8s][%-8s]", u"ab", u"cd"), u"[      ab][cd      ]");
  EXPECT_EQ(F(u"[%.3s][%.3a][%.9s][%5.2s]", u"abcdef", "ghijkl", u"mn", u"abcdef"), u"[abc][ghi][mn][   ab]");
  EXPECT_EQ(F(u"%c%c%c[%3c][%-3c][%c]", u'a', u'\u2588', 'Z', u'x', u'y', 0), u"a\u2588Z[  x][y  ][]");
}

TEST(Format, Integers) {
  EXPECT_EQ(F(u"%d %i %d", 0, 42, -42), u"0 42 -42");
  EXPECT_EQ(F(u"%d %d", 2147483647, -2147483647 - 1), u"2147483647 -2147483648");
  EXPECT_EQ(F(u"%ld %Ld", 9223372036854775807LL, -9223372036854775807LL - 1),
            u"9223372036854775807 -9223372036854775808");
  // Without 'l' only the low 32 bits of the argument are read.
  EXPECT_EQ(F(u"%d|%d", 0x1FFFFFFFFULL, 7), u"-1|7");
  EXPECT_EQ(F(u"%u %u %lu", 4294967295U, -1, 18446744073709551615ULL), u"4294967295 4294967295 18446744073709551615");
  EXPECT_EQ(F(u"%x %X 0x%X", 0xABCDEFU, 0xABCDEFU, 0U), u"abcdef ABCDEF 0x0");
  EXPECT_EQ(F(u"%X|%lX|%lx", 0x1234567890ULL, 0x123456789ABCDEF0ULL, 0xFFFFFFFFFFFFFFFFULL),
            u"34567890|123456789ABCDEF0|ffffffffffffffff");
  EXPECT_EQ(F(u"%p|[%-18p]", reinterpret_cast<const VOID*>(0x1234ABCDULL),
              reinterpret_cast<const VOID*>(0xFFFF800000001000ULL)),
            u"000000001234ABCD|[FFFF800000001000  ]");
}

TEST(Format, WidthPrecisionPaddingAndSign) {
  EXPECT_EQ(F(u"[%5d][%-5d][%03d][%02d]", 42, 42, 5, 123), u"[   42][42   ][005][123]");
  EXPECT_EQ(F(u"[%08X][%8X][%-8X]", 0xABCU, 0xABCU, 0xABCU), u"[00000ABC][     ABC][ABC     ]");
  EXPECT_EQ(F(u"[%05d][%5d][%-5d]", -42, -42, -4), u"[-0042][  -42][-4   ]");
  EXPECT_EQ(F(u"[%+d][%+d][% d][% d][%+05d][% 05d]", 5, -5, 5, -5, 42, 42), u"[+5][-5][ 5][-5][+0042][ 0042]");
  EXPECT_EQ(F(u"[%+u][% x]", 5U, 10U), u"[5][a]");  // sign flags are for signed conversions
  EXPECT_EQ(F(u"[%-05d]", 7), u"[7    ]");         // '-' wins over '0'
  EXPECT_EQ(F(u"[%020ld][%021ld]", -9223372036854775807LL - 1, -9223372036854775807LL - 1),
            u"[-9223372036854775808][-09223372036854775808]");
  EXPECT_EQ(F(u"[%*d][%*d]", 5, 42, -5, 42), u"[   42][42   ]");
  EXPECT_EQ(F(u"[%.*s][%.*s]", 3, u"abcdef", -1, u"abcdef"), u"[abc][abcdef]");
  EXPECT_EQ(F(u"[%*.*s]|%d", 4, 2, u"xyz", 9), u"[  xy]|9");
  // A huge width stops at the buffer.
  EXPECT_EQ(F(u"%99999999999999999999d", 1), std::u16string(255, u' '));
  EXPECT_EQ(F(u"%*d", 2147483647, 1), std::u16string(255, u' '));
}

TEST(Format, ThousandsGrouping) {
  EXPECT_EQ(F(u"%,d|%,d|%,d|%,d", 0, 999, 1000, 1234567), u"0|999|1,000|1,234,567");
  EXPECT_EQ(F(u"%,d|%,d|%,d", -999, -1000, -1234567), u"-999|-1,000|-1,234,567");
  EXPECT_EQ(F(u"%,ld|%,lu", -9223372036854775807LL - 1, 18446744073709551615ULL),
            u"-9,223,372,036,854,775,808|18,446,744,073,709,551,615");
  EXPECT_EQ(F(u"[%,8d][%-,8d]", 1234, 1234), u"[   1,234][1,234   ]");
  EXPECT_EQ(F(u"%,X", 0x123456U), u"123456");  // hexadecimal is never grouped
}

TEST(Format, StatusConversion) {
  EXPECT_EQ(F(u"%r|%r|%r|%r", EFI_SUCCESS, EFI_LOAD_ERROR, EFI_END_OF_MEDIA, EFI_END_OF_FILE),
            u"Success|Load Error|End of Media|End of File");
  EXPECT_EQ(F(u"%r|%r|%r", EFI_HTTP_ERROR, EFI_WARN_UNKNOWN_GLYPH, EFI_WARN_RESET_REQUIRED),
            u"HTTP Error|Warning Unknown Glyph|Warning Reset Required");
  // Values without a name print in full hexadecimal.
  EXPECT_EQ(F(u"%r|%r|%r|%r", EFIERR(29), EFIERR(36), EFI_ERROR_BIT, 8ULL),
            u"0x800000000000001D|0x8000000000000024|0x8000000000000000|0x0000000000000008");
  EXPECT_EQ(tarvik::StatusName(EFIERR(29)), nullptr);
}

TEST(Format, NewlinesAndUnknownConversions) {
  EXPECT_EQ(F(u"a\nb|a\n\rb|a\r\nb|\n\n"), u"a\r\nb|a\r\nb|a\r\nb|\r\n\r\n");
  // Arguments are copied as they are.
  EXPECT_EQ(F(u"[%s]%c\n", u"x\ny", u'\n'), u"[x\ny]\n\r\n");
  EXPECT_EQ(F(u"%5q|50%"), u"%5q|50%");
  EXPECT_EQ(F(u"%q %d", 5), u"%q 5");  // no argument is taken
  EXPECT_EQ(F(u"%\n"), u"%\r\n");
}

// A smaller buffer getting a terminated prefix of what a large one gets, and
// nothing written past it, is checked on every format of the fuzz corpus
// (format_fuzz, under ASan in build-asan/).

}  // namespace
