// The frame every screen is drawn in: title, subtitle, footer, version line
// and clock, and the titles of the two half-screen panels.
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/program_version.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

// The last column is left in the background colour on every row.
VOID PrintBand(const CHAR16* Text, UINTN Row, UINTN Attribute) {
  SetColour(Attribute);
  PrintCentered(Text, Row, 1, ScreenColumns() - 1);
}

}  // namespace

VOID DrawFooter(const CHAR16* Text) { PrintBand(Text, ScreenRows() - 2, ui_colour::Band); }

VOID DrawScreenFrame(const CHAR16* Subtitle, const CHAR16* Footer) {
  SetColour(ui_colour::Screen);
  ClearConsole();
  PrintBand(UiText(ui_text::Title), 0, ui_colour::Bar);
  PrintBand(Subtitle, 1, ui_colour::Band);
  DrawFooter(Footer);
  CHAR16 Version[64];
  SPrint(Version, sizeof(Version), u"%s %s", UiText(ui_text::Version), ProgramVersion);
  PrintBand(Version, ScreenRows() - 1, ui_colour::Bar);
  DrawClock(1);
}

VOID DrawPanelTitles(const CHAR16* LeftTitle, const CHAR16* RightTitle) {
  const UINTN Margin = ColumnsPercent(5);
  const UINTN Width = ColumnsPercent(40);
  const UINTN Half = ScreenColumns() / 2;
  SetColour(ui_colour::Screen);
  if (LeftTitle != nullptr) PrintCentered(LeftTitle, 3, Margin, Margin + Width);
  if (RightTitle != nullptr) PrintCentered(RightTitle, 3, Half + Margin, Half + Margin + Width);
}

VOID DrawClock(UINT8 Force) {
  const ConsoleStateKeeper Kept;
  const UINTN Columns = ScreenColumns();
  const UINTN LastRow = ScreenRows() - 1;
  SetColour(ui_colour::Bar);
  if (ClockTime.Minute == 0 || Force == 1) {
    MoveCursor(Columns - 10, LastRow);
    Print(u"%02d:", ClockTime.Hour);
  }
  if (ClockTime.Second == 0 || Force == 1) {
    MoveCursor(Columns - 7, LastRow);
    Print(u"%02d:", ClockTime.Minute);
  }
  MoveCursor(Columns - 4, LastRow);
  Print(u"%02d", ClockTime.Second);
}

EFIAPI VOID ClockTick(EFI_EVENT, VOID*) {
  gRT->GetTime(&ClockTime, nullptr);
  if (ClockEnabled == 1) DrawClock(0);
}

}  // namespace tarvik
