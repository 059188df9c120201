// Texts placed in a segment of a row: centred, word-wrapped, cut at its end,
// or blanked.
#include "core/diag_common.h"
#include "core/pool.h"
#include "core/wide_string.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {

VOID PrintCentered(const CHAR16* Text, UINTN Row, UINTN From, UINTN To) {
  if (Text == nullptr) Text = u"";
  const UINTN Length = StrLen(Text);
  if (To < From || Length > To - From) return;
  const UINTN Spare = To - Length - From;
  const UINTN Leading = Spare <= 1 ? 0 : Spare / 2;
  MoveCursor(From, Row);
  PutBlanks(Leading);
  PutOutsideText(Text, Length);
  PutBlanks(Spare - Leading);
}

VOID PrintWrapped(const CHAR16* Text, UINTN* LineCount, UINT8 Mode, UINTN Row, UINTN From, UINTN To) {
  if (Text == nullptr) Text = u"";
  PoolPtr<CHAR16> Line;
  if (EFI_ERROR(Line.Allocate((WrapWidth + 1) * sizeof(CHAR16)))) {
    if (Mode == 0 && LineCount != nullptr) *LineCount = 1;
    return;
  }
  const UINTN Length = StrLen(Text);
  UINTN Start = 0;
  UINTN Lines = 0;
  while (Start + WrapWidth <= Length) {
    // Back from the character after a full line to the blank that ends it;
    // a word longer than a line is cut.
    UINTN Cut = Start + WrapWidth;
    while (Cut > Start && Text[Cut] != u' ') --Cut;
    if (Cut == Start && Text[Start] != u' ') Cut = Start + WrapWidth;
    for (UINTN I = Start; I < Cut; ++I) Line.get()[I - Start] = Text[I];
    Line.get()[Cut - Start] = 0;
    if (Mode == 1) PrintCentered(Line.get(), Row + Lines, From, To);
    ++Lines;
    Start = Cut;
    while (Text[Start] == u' ') ++Start;
  }
  if (Mode == 1) PrintCentered(Text + Start, Row + Lines, From, To);
  if (Mode == 0 && LineCount != nullptr) *LineCount = Lines + 1;
}

VOID ClearRowSegment(UINTN Row, UINTN From, UINTN To) {
  if (To <= From) return;
  MoveCursor(From, Row);
  PutBlanks(To - From);
}

UINTN PrintWithin(const CHAR16* Text, UINTN Row, UINTN From, UINTN To) {
  if (To <= From) return From;
  MoveCursor(From, Row);
  return From + PutOutsideText(Text, To - From);
}

VOID PrintLabelledRow(const CHAR16* Label, const CHAR16* Value, UINTN Row, UINTN From, UINTN ValueColumn, UINTN To) {
  if (To <= From) return;
  UINTN Column = PrintWithin(Label, Row, From, To);
  if (Column < ValueColumn && ValueColumn < To) {
    PutBlanks(ValueColumn - Column);
    Column = ValueColumn;
  }
  Column = PrintWithin(Value, Row, Column, To);
  ClearRowSegment(Row, Column, To);
}

VOID ClearArea(UINTN Left, UINTN Right, UINTN Top, UINTN Bottom) {
  SetColour(ui_colour::Screen);
  for (UINTN Row = Top; Row < Bottom; ++Row) ClearRowSegment(Row, Left, Right);
}

}  // namespace tarvik
