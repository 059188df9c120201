// The drawing operations every screen is made of, so that all screens share
// one look: cyan background, title and subtitle bars, key help in the footer,
// the version line with the clock, centred and wrapped texts, double-line
// boxes, message boxes, the progress bar, the scroll bar and the spinner.
// Positions are (column, row) from the top-left corner; ranges of columns or
// rows are [From, To). Each operation leaves the attribute it set last in
// force, except DrawClock and StepSpinner, which run from timer
// notifications and put back the attribute and the cursor they found.
#pragma once

#include "efi/efi.h"
#include "ui/scrolling.h"
#include "ui/ui_state.h"

namespace tarvik {

// Clears the screen in cyan and draws the title, Subtitle, the Footer, the
// version line and the clock.
VOID DrawScreenFrame(const CHAR16* Subtitle, const CHAR16* Footer);
VOID DrawFooter(const CHAR16* Text);
// Titles of the two half-screen panels; either may be null.
VOID DrawPanelTitles(const CHAR16* LeftTitle, const CHAR16* RightTitle);
// Draws the clock from ClockTime: every field when Force is 1, otherwise the
// seconds and whichever of minutes and hours just rolled over.
VOID DrawClock(UINT8 Force);
// The clock's one-second notification: reads the time into ClockTime and,
// while ClockEnabled is 1, draws the fields that changed. It runs at
// ClockTpl, so between any two console calls of the screen being drawn.
inline constexpr EFI_TPL ClockTpl = DrawingTpl;
EFIAPI VOID ClockTick(EFI_EVENT Event, VOID* Context);

// Texts from outside the application (SMBIOS strings, a drive's identity, a
// module's or tool's rows, log lines) are drawn with PrintWithin,
// PrintLabelledRow or ScrolledLine: cut at the edge of their box, so that
// none runs past it or scrolls the screen, and control characters as blanks
// (PutOutsideText).

// Text centred in [From, To) of Row, blanks on both sides in the current
// attribute; nothing when it does not fit.
VOID PrintCentered(const CHAR16* Text, UINTN Row, UINTN From, UINTN To);
// Word-wraps Text into lines of at most 40 characters. Mode 0 only counts
// them into *LineCount; mode 1 prints them centred from Row on.
inline constexpr UINTN WrapWidth = 40;
VOID PrintWrapped(const CHAR16* Text, UINTN* LineCount, UINT8 Mode, UINTN Row, UINTN From, UINTN To);
VOID ClearRowSegment(UINTN Row, UINTN From, UINTN To);
// Text from column From of Row, cut at To; returns the column after the last
// character drawn (From when nothing was).
UINTN PrintWithin(const CHAR16* Text, UINTN Row, UINTN From, UINTN To);
// A label and its value on Row of a panel: the label from From, the value
// from ValueColumn, or right after a label that reaches it (a module may give
// the whole row as the label and no value). Both are cut at To, and the row
// is blanked up to it.
VOID PrintLabelledRow(const CHAR16* Label, const CHAR16* Value, UINTN Row, UINTN From, UINTN ValueColumn, UINTN To);
// Cyan blanks over [Left, Right) x [Top, Bottom).
VOID ClearArea(UINTN Left, UINTN Right, UINTN Top, UINTN Bottom);

// Corners at columns Left and Right and rows Top and Bottom.
VOID DrawDoubleBox(UINTN Left, UINTN Right, UINTN Top, UINTN Bottom);
// In the second column from the right, for Total lines of which Visible are
// shown from First on, the track from TopRow down; nothing when all fit.
VOID DrawScrollBar(UINT64 Total, UINT64 Visible, UINT64 First, UINTN TopRow);
VOID DrawProgressBar(UINT64 Percent, UINTN Row);
VOID StepSpinner(UINTN Row, UINT8* State);
VOID ClearSpinner(UINTN Row);

// Frame of a centred message box for LineCount lines of text (Compact 1:
// two rows less); returns the area inside it.
VOID DrawMessageFrame(UINTN LineCount, const CHAR16* Title, UINTN* InnerLeft, UINTN* InnerTop, UINTN* InnerRight,
                      UINTN* InnerBottom, UINT8 Compact);
enum class MessageBoxType : UINT8 {
  Success = 0,   // "Success", Enter
  Error = 1,     // "Error", Enter
  Notice = 2,    // Enter (EFI_SUCCESS) or ESC (EFI_ABORTED)
  Question = 3,  // Y (EFI_SUCCESS) or N (EFI_ABORTED)
};
// Shows Text in a message box and waits for its answer. The box stays on
// the screen; the caller redraws. An unknown Type gives EFI_INVALID_PARAMETER
// and draws nothing.
EFI_STATUS ShowMessageBox(const CHAR16* Text, UINT8 Type);

// Writes "Label yyyy-mm-dd hh:mm:ss." and an empty line into a scrollable
// area (see ScrolledLine).
VOID AddTimeLine(const CHAR16* Label, const EFI_TIME& Time, UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row,
                 UINTN Column, UINTN EndColumn);
// Writes Label with the date and time of End, "DurationLabel hh:mm:ss." of
// the span from Start to End, and an empty line.
VOID AddTimeAndDurationLines(const CHAR16* Label, const CHAR16* DurationLabel, const EFI_TIME& Start,
                             const EFI_TIME& End, UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row,
                             UINTN Column, UINTN EndColumn);

}  // namespace tarvik
