// Boxes, the scroll bar, the progress bar and the busy spinner.
#include "core/globals.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr CHAR16 Horizontal = 0x2550;
constexpr CHAR16 Vertical = 0x2551;
constexpr CHAR16 TopLeft = 0x2554;
constexpr CHAR16 TopRight = 0x2557;
constexpr CHAR16 BottomLeft = 0x255A;
constexpr CHAR16 BottomRight = 0x255D;
constexpr CHAR16 ArrowUp = 0x25B2;
constexpr CHAR16 ArrowDown = 0x25BC;
constexpr CHAR16 SpinnerPhases[] = {u'|', u'/', u'-', u'\\'};

// Widest bar drawn; wider consoles get a bar of this width.
constexpr UINTN MaxBarWidth = 255;

UINTN SpinnerColumn() { return ScreenColumns() * 45 / 100 + 1; }

}  // namespace

VOID DrawDoubleBox(UINTN Left, UINTN Right, UINTN Top, UINTN Bottom) {
  SetColour(ui_colour::Screen);
  CHAR16 Edge[MaxBarWidth + 1];
  UINTN Width = Right > Left + 1 ? Right - Left - 1 : 0;
  if (Width > MaxBarWidth) Width = MaxBarWidth;
  for (UINTN I = 0; I < Width; ++I) Edge[I] = Horizontal;
  Edge[Width] = 0;
  MoveCursor(Left + 1, Top);
  PutText(Edge);
  MoveCursor(Left + 1, Bottom);
  PutText(Edge);
  for (UINTN Row = Top + 1; Row < Bottom; ++Row) {
    MoveCursor(Left, Row);
    PutChar(Vertical);
    MoveCursor(Right, Row);
    PutChar(Vertical);
  }
  MoveCursor(Left, Top);
  PutChar(TopLeft);
  MoveCursor(Left, Bottom);
  PutChar(BottomLeft);
  MoveCursor(Right, Top);
  PutChar(TopRight);
  MoveCursor(Right, Bottom);
  PutChar(BottomRight);
}

VOID DrawScrollBar(UINT64 Total, UINT64 Visible, UINT64 First, UINTN TopRow) {
  if (Total <= Visible) return;
  UINT64 ThumbStart;
  UINT64 ThumbLength;
  if (Visible > Total - Visible) {
    ThumbStart = First;
    ThumbLength = 2 * Visible - Total;
  } else {
    ThumbStart = Visible * First / (Total - Visible + 1);
    ThumbLength = 1;
  }
  const UINTN Column = ScreenColumns() - 2;
  for (UINT64 I = 0; I < Visible; ++I) {
    MoveCursor(Column, TopRow + I);
    SetColour(I >= ThumbStart && I < ThumbStart + ThumbLength ? ui_colour::Band : ui_colour::Track);
    PutChar(u' ');
  }
  SetColour(ui_colour::Screen);
  MoveCursor(Column, TopRow - 1);
  PutChar(ArrowUp);
  MoveCursor(Column, TopRow + Visible);
  PutChar(ArrowDown);
}

VOID DrawProgressBar(UINT64 Percent, UINTN Row) {
  const UINT64 P = Percent > 100 ? 100 : Percent;
  UINTN Width = ColumnsPercent(40);
  if (Width > MaxBarWidth) Width = MaxBarWidth;
  const UINTN Left = ColumnsPercent(5);
  const UINTN Half = Width / 2;

  // The bar's cells, with the percentage in the four around its middle.
  CHAR16 Cells[MaxBarWidth + 1];
  for (UINTN I = 0; I < Width; ++I) Cells[I] = u' ';
  Cells[Width] = 0;
  if (Half >= 2 && Half + 1 < Width) {
    Cells[Half - 2] = P == 100 ? u'1' : u' ';
    Cells[Half - 1] = static_cast<CHAR16>(u'0' + (P == 100 ? 0 : P / 10));
    Cells[Half] = static_cast<CHAR16>(u'0' + P % 10);
    Cells[Half + 1] = u'%';
  }

  const UINTN Filled = static_cast<UINTN>(Width * P / 100);
  MoveCursor(Left, Row);
  if (Filled > 0) {
    SetColour(ui_colour::Highlight);
    const CHAR16 Saved = Cells[Filled];
    Cells[Filled] = 0;
    PutText(Cells);
    Cells[Filled] = Saved;
  }
  SetColour(ui_colour::Plain);
  PutText(Cells + Filled);

  SetColour(ui_colour::Screen);
  if (Left > 0) {
    MoveCursor(Left - 1, Row);
    PutChar(u' ');
  }
  MoveCursor(Left + Width, Row);
  PutChar(u' ');
}

VOID StepSpinner(UINTN Row, UINT8* State) {
  {
    const ConsoleStateKeeper Kept;
    SetColour(ui_colour::Screen);
    MoveCursor(SpinnerColumn(), Row);
    PutChar(SpinnerPhases[*State & 3]);
  }
  *State = *State >= 3 ? 0 : static_cast<UINT8>(*State + 1);
}

VOID ClearSpinner(UINTN Row) {
  SetColour(ui_colour::Screen);
  MoveCursor(SpinnerColumn(), Row);
  PutChar(u' ');
}

}  // namespace tarvik
