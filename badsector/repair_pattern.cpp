#include "badsector/repair_pattern.h"

namespace tarvik {
namespace {

constexpr CHAR16 RepeatedWord[] = u"BAD_SECTOR_REPAIRED_";
constexpr UINTN RepeatedWordChars = sizeof(RepeatedWord) / sizeof(CHAR16) - 1;
constexpr UINTN PatternChars = RepairPatternBytes / sizeof(CHAR16);

struct PatternText {
  CHAR16 Units[PatternChars];
};

constexpr PatternText BuildPattern() {
  PatternText Text{};
  for (UINTN I = 0; I + 1 < PatternChars; ++I) Text.Units[I] = RepeatedWord[I % RepeatedWordChars];
  Text.Units[PatternChars - 1] = 0;
  return Text;
}

constexpr PatternText Pattern = BuildPattern();
static_assert(sizeof(Pattern) == RepairPatternBytes);
static_assert(Pattern.Units[240] == u'B' && Pattern.Units[254] == u'A' && Pattern.Units[255] == 0);

}  // namespace

VOID FillRepairPattern(UINT8* Buffer, UINTN Size) {
  // The drive stores the text as the firmware does: UTF-16, low byte first.
  for (UINTN I = 0; I < Size; ++I) {
    const CHAR16 Unit = Pattern.Units[(I % RepairPatternBytes) / sizeof(CHAR16)];
    Buffer[I] = static_cast<UINT8>(I % 2 == 0 ? Unit : Unit >> 8);
  }
}

}  // namespace tarvik
