// What every screen shares: the console size, the "Interface" texts, the
// clock, the services the screens call, and small console helpers. The main
// screen sets this up when the interface starts and releases it at the end.
#pragma once

#include "efi/efi.h"
#include "ui/interface_texts.h"

namespace tarvik {

struct DiagCommonProtocol;
struct LanguageProtocol;
struct TestCollectionProtocol;

// Columns, then rows, of the console mode in use (a 16-byte pool buffer;
// 0 x 0 until a mode is chosen, null outside the interface).
extern UINT64* ScreenSize;
extern CHAR16** InterfaceStrings;
extern UINT64 InterfaceStringCount;
// The time the clock shows, refreshed every second by the clock's timer.
extern EFI_TIME ClockTime;
// While 1 the clock and the busy spinner draw; timer notifications read it.
extern volatile UINT8 ClockEnabled;

extern DiagCommonProtocol* UiCommon;
extern LanguageProtocol* UiLanguage;
extern TestCollectionProtocol* UiTests;

inline UINTN ScreenColumns() { return ScreenSize != nullptr ? ScreenSize[0] : 0; }
inline UINTN ScreenRows() { return ScreenSize != nullptr ? ScreenSize[1] : 0; }
// Percent of the screen width, rounded down.
inline UINTN ColumnsPercent(UINTN Percent) { return ScreenColumns() * Percent / 100; }

// An "Interface" text by number; empty when the table has no such entry.
const CHAR16* UiText(UINT64 Id);

// Console attributes of the screens.
namespace ui_colour {
inline constexpr UINTN Screen = 0x30;        // black on cyan: backgrounds, boxes, texts
inline constexpr UINTN Bar = 0x0F;           // white on black: title, version, clock
inline constexpr UINTN Band = 0x70;          // black on light gray: subtitle, footer, scroll thumb
inline constexpr UINTN MessageBorder = 0x7F; // white on light gray
inline constexpr UINTN Highlight = 0x1F;     // white on blue: selection, filled progress
inline constexpr UINTN Plain = 0x07;         // light gray on black: empty progress, the console at exit
inline constexpr UINTN Track = 0x00;         // black on black: scroll-bar track
inline constexpr UINTN Status = 0x31;        // blue on cyan: queue states and results but these two
inline constexpr UINTN Passed = 0x02;        // green on black
inline constexpr UINTN Failed = 0x34;        // red on cyan
}  // namespace ui_colour

// Timer notifications that draw (the clock, the spinner, the key polls of a
// running flow) run at this level, and every console call of the screens is
// made at it: a firmware console may let a notification in between two
// characters of its output (a serial terminal writes them one at a time),
// where the notification's own output would split a text or a cursor
// sequence. Notifications thus run only between two console calls.
inline constexpr EFI_TPL DrawingTpl = TPL_NOTIFY;

// ---- Console helpers: statuses of console output are not checked ----------
// Each call is made at DrawingTpl.
VOID SetColour(UINTN Attribute);
VOID MoveCursor(UINTN Column, UINTN Row);
VOID ClearConsole();
VOID PutText(const CHAR16* Text);
// Puts at most Room characters of a text from outside the application
// (firmware tables, drives, modules, tools, log lines) at the cursor, a
// control character (C0, DEL and the C1 range that Latin-1 bytes widen to)
// as a blank: consoles draw them as they please or move the cursor (the tab
// of "Bad sectors found =\t"). Returns how many it put; Text may be null.
UINTN PutOutsideText(const CHAR16* Text, UINTN Room);
VOID PutChar(CHAR16 Character);
VOID PutBlanks(UINTN Count);
UINTN CursorColumn();

// Remembers the console's attribute and cursor and puts them back when it
// goes. Every notification that draws (the clock, the spinner, a key poll's
// redraw) holds one: it runs between two console calls of whatever screen
// it interrupted (see DrawingTpl), whose next call must find the console as
// it left it.
class ConsoleStateKeeper {
 public:
  ConsoleStateKeeper();
  ~ConsoleStateKeeper();
  ConsoleStateKeeper(const ConsoleStateKeeper&) = delete;
  ConsoleStateKeeper& operator=(const ConsoleStateKeeper&) = delete;

 private:
  INT32 Attribute_;
  INT32 Column_;
  INT32 Row_;
};

}  // namespace tarvik
