// The clock's notification runs between two console calls of the screen
// being drawn, never inside one: every call is made at the notifications'
// level (a serial console may let them in between two characters), and a
// screen drawn with the clock firing after its k-th call, for every k, comes
// out as it does without the clock, cell by cell, with the attribute and
// cursor the drawing left.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "core/diag_common.h"
#include "core/globals.h"
#include "hostfw/console_out.h"
#include "hostfw/events.h"
#include "tests/support/test_machine.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace {

using namespace tarvik;
using testing_support::TestMachine;

// A screen's kinds of drawing: the frame, a centred band, a line written in
// pieces that continue at the cursor (as the log view's stop lines), texts
// placed and then continued, and the spinner's character.
void draw_a_screen() {
  DrawScreenFrame(u"Main Screen", u"ESC = exit  F3 = view log");
  SetColour(0x30);
  PrintCentered(u"Information about Test", 3, 5, 45);
  UINT64 line = 0;
  UINTN row = 5;
  ScrolledLine(20, 0, &line, &row, 1, u"2026/11/22 09:30:00 Stop Read ", 98, LineMode::Continue);
  SetColour(0x02);
  ScrolledLine(20, 0, &line, &row, CursorColumn(), u"PASSED", 98, LineMode::Continue);
  SetColour(0x30);
  ScrolledLine(20, 0, &line, &row, CursorColumn(), u" 75s", 98, LineMode::Finish);
  PrintLabelledRow(u"Device: Arkon SSD-A510", u"", 7, 5, 25, 48);
  MoveCursor(5, 8);
  Print(u"%s:", u"Algorithm");
  PutText(u" Random Seek Test");
  SetColour(0x1F);
  PutBlanks(3);
  DrawProgressBar(42, 10);
  UINT8 spinner = 0;
  StepSpinner(10, &spinner);
  DrawFooter(u"ESC = exit");
}

struct Drawn { hostfw::ScreenGrid grid; uint8_t attribute; int column, row; int ticks; };

EFIAPI VOID CountedClockTick(EFI_EVENT event, VOID* ticks) {
  ++*static_cast<int*>(ticks);
  ClockTick(event, nullptr);
}

class ClockBetweenCalls : public ::testing::Test {
 protected:
  ClockBetweenCalls() {
    machine->system_table()->ConOut->SetMode(machine->system_table()->ConOut, 2);
    // Drawn without the interface's texts; a run abandoned by an earlier
    // test may have left the shared state pointing at its services.
    UiLanguage = nullptr;
    InterfaceStrings = nullptr;
    InterfaceStringCount = 0;
    ScreenSize = size;
  }
  ~ClockBetweenCalls() override {
    ScreenSize = nullptr;
    ClockTime = EFI_TIME{};
  }

  // The screen drawn afresh, with the clock falling due during the console
  // call numbered after_call (from 1) when that is not 0; its notification
  // runs as the call returns.
  Drawn draw(int after_call) {
    const hostfw::ConsoleOut& console = machine->console();
    SetColour(0x07);
    gST->ConOut->ClearScreen(gST->ConOut);
    MoveCursor(0, 0);
    gRT->GetTime(&ClockTime, nullptr);
    int ticks = 0;
    EFI_EVENT clock = nullptr;
    if (after_call > 0) {
      EXPECT_EQ(gBS->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, ClockTpl, CountedClockTick, &ticks, &clock),
                EFI_SUCCESS);
      // A console call takes 20 us of machine time: due half-way through.
      gBS->SetTimer(clock, TimerRelative, after_call * 200 - 100);
    }
    draw_a_screen();
    if (clock != nullptr) gBS->CloseEvent(clock);
    return {console.grid(), console.attribute(), console.cursor_column(), console.cursor_row(), ticks};
  }

  TestMachine machine;
  UINT64 size[2] = {100, 31};
};

// Where two drawings differ, outside the clock's eight cells.
std::string first_difference(const hostfw::ScreenGrid& a, const hostfw::ScreenGrid& b) {
  for (int row = 0; row < a.rows; ++row) {
    for (int column = 0; column < a.columns; ++column) {
      if (row == a.rows - 1 && column >= a.columns - 10 && column < a.columns - 2) continue;
      if (a.cell(column, row) == b.cell(column, row)) continue;
      return "row " + std::to_string(row) + " column " + std::to_string(column) + ": \"" +
             a.text_at(0, row, a.columns) + "\" became \"" + b.text_at(0, row, b.columns) + "\"";
    }
  }
  return "";
}

TEST_F(ClockBetweenCalls, AScreenComesOutTheSameWhereverTheClockInterruptsIt) {
  const Drawn alone = draw(0);
  ASSERT_TRUE(alone.grid.contains("Device: Arkon SSD-A510"));
  int interrupted = 0;
  for (int call = 1;; ++call) {
    const Drawn with_clock = draw(call);
    if (with_clock.ticks == 0) break;  // past the drawing's last call
    ++interrupted;
    SCOPED_TRACE("the clock after call " + std::to_string(call));
    EXPECT_EQ(with_clock.ticks, 1);
    EXPECT_EQ(first_difference(alone.grid, with_clock.grid), "");
    // A cursor left on the last column, where nothing is written, may come
    // back one short of it.
    const int column = with_clock.column == 98 && alone.column == 99 ? 99 : with_clock.column;
    EXPECT_EQ(std::tuple(with_clock.attribute, column, with_clock.row),
              std::tuple(alone.attribute, alone.column, alone.row));
    EXPECT_EQ(with_clock.grid.text_at(92, 30, 1), ":") << "the clock drew its fields";
  }
  EXPECT_GT(interrupted, 60) << "every call of the drawing was tried";
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

// Stands between the screens and the console, noting the lowest task
// priority any of its calls is made at.
struct ConsoleSpy {
  static inline hostfw::Events* events = nullptr;
  static inline EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL real{};
  static inline int calls = 0;
  static inline EFI_TPL lowest = TPL_HIGH_LEVEL;

  template <auto Member, typename... Args>
  static EFIAPI EFI_STATUS call(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, Args... args) {
    ++calls;
    lowest = std::min(lowest, events->tpl());
    return (real.*Member)(This, args...);
  }
};

TEST_F(ClockBetweenCalls, EveryConsoleCallOfAScreenHoldsTheNotificationsThatDrawOff) {
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* out = gST->ConOut;
  ConsoleSpy::events = &machine->events();
  ConsoleSpy::real = *out;
  using Out = EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL;
  out->OutputString = ConsoleSpy::call<&Out::OutputString, CHAR16*>;
  out->SetAttribute = ConsoleSpy::call<&Out::SetAttribute, UINTN>;
  out->SetCursorPosition = ConsoleSpy::call<&Out::SetCursorPosition, UINTN, UINTN>;
  out->ClearScreen = ConsoleSpy::call<&Out::ClearScreen>;
  ASSERT_EQ(machine->events().tpl(), TPL_APPLICATION);
  draw_a_screen();
  *out = ConsoleSpy::real;
  EXPECT_GT(ConsoleSpy::calls, 60);
  EXPECT_EQ(ConsoleSpy::lowest, DrawingTpl);
  EXPECT_EQ(machine->events().tpl(), TPL_APPLICATION);
}

}  // namespace
