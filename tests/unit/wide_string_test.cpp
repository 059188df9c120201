#include "core/wide_string.h"

#include <gtest/gtest.h>

namespace {

using namespace tarvik;

TEST(WideString, CompareReturnsTheDifferenceOfTheFirstUnequalUnits) {
  EXPECT_EQ(StrCmp(u"abc", u"abc"), 0);
  EXPECT_EQ(StrCmp(u"", u""), 0);
  EXPECT_EQ(StrCmp(u"ab", u"abc"), -(INTN)u'c');
  EXPECT_EQ(StrCmp(u"abc", u"ab"), (INTN)u'c');
  EXPECT_EQ(StrCmp(u"abd", u"abc"), 1);
  // Units compare as unsigned 16-bit values.
  EXPECT_EQ(StrCmp(u"\xFFFF", u"a"), 0xFFFF - (INTN)u'a');
  EXPECT_GT(StrCmp(u"\x2500", u"z"), 0);
}

TEST(WideString, CopyAndAppendWriteTheTerminator) {
  CHAR16 buffer[16];
  for (CHAR16& c : buffer) c = u'#';
  EXPECT_EQ(StrCpy(buffer, u"Log"), buffer);
  EXPECT_EQ(StrLen(buffer), 3u);
  EXPECT_EQ(StrCat(buffer, u".log"), buffer);
  EXPECT_EQ(StrCmp(buffer, u"Log.log"), 0);
  EXPECT_EQ(buffer[7], 0);
  EXPECT_EQ(buffer[8], u'#') << "nothing is written past the terminator";
  StrCat(buffer, u"");
  EXPECT_EQ(StrLen(buffer), 7u);
  EXPECT_EQ(StrLen(u""), 0u);
}

}  // namespace
