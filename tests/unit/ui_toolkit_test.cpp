// The screen toolkit, the scrolling and time helpers and the check-box keys,
// drawn on the test machine's console and read back cell by cell.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <tuple>

#include "tests/support/test_machine.h"
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/selection_screen.h"
#include "ui/ui_state.h"

namespace {

using namespace tarvik;
using testing_support::TestMachine;

class UiToolkit : public ::testing::Test {
 protected:
  UiToolkit() { ScreenSize = size; }
  ~UiToolkit() override { ScreenSize = nullptr; }
  void TearDown() override { EXPECT_EQ(machine->memory().outstanding_pools(), 0u); }

  void wide() {
    machine->system_table()->ConOut->SetMode(machine->system_table()->ConOut, 2);
    size[0] = 100, size[1] = 31;
  }
  // Dots in attribute 0x4E over a row, so that cells left alone show.
  void mark(UINTN row) {
    SetColour(0x4E);
    MoveCursor(0, row);
    PutText(std::u16string(ScreenColumns() - 1, u'.').c_str());
  }
  std::string text(int column, int row, int length) { return machine->console().grid().text_at(column, row, length); }
  uint8_t attr(int column, int row) { return machine->console().attribute_at(column, row); }
  static std::string blanks(size_t count) { return std::string(count, ' '); }

  TestMachine machine;
  UINT64 size[2] = {80, 25};
};

TEST_F(UiToolkit, PrintCenteredFillsTheSegmentOrLeavesItAlone) {
  struct Case { const char16_t* text; int from, to, leading; };  // leading -1: does not fit
  const Case cases[] = {{u"abc", 10, 20, 3},        {u"abcd", 10, 15, 0}, {u"ab", 10, 14, 1},
                        {u"abcdefghij", 10, 20, 0}, {u"", 10, 13, 1},     {u"abcdefghijk", 10, 20, -1}};
  int row = 2;
  for (const Case& c : cases) {
    mark(row);
    SetColour(0x1F);
    PrintCentered(c.text, row, c.from, c.to);
    const int width = c.to - c.from;
    const std::string body = testing_support::utf8(c.text);
    EXPECT_EQ(text(c.from - 1, row, width + 2),
              c.leading < 0 ? std::string(width + 2, '.')
                            : "." + blanks(c.leading) + body + blanks(width - c.leading - body.size()) + ".");
    for (int col = c.from; col < c.to; ++col) EXPECT_EQ(attr(col, row), c.leading < 0 ? 0x4E : 0x1F) << body;
    ++row;
  }
}

TEST_F(UiToolkit, PrintWrappedBreaksAtTheLastBlankAndCutsLongWords) {
  const std::u16string a19(19, u'a'), a30(30, u'a'), a40(40, u'a'), b10(10, u'b');
  const std::pair<std::u16string, UINTN> cases[] = {
      {u"", 1},           {u"short text", 1},          {std::u16string(39, u'a'), 1}, {a19 + u" " + b10 + b10, 2},
      {a30 + u" " + b10, 2}, {a40 + u"aaaaa", 2},      {a40 + u" bb", 2},             {a40 + a40 + a19, 3}};
  const size_t drawn = machine.transcript().size();
  for (const auto& [wrapped, count] : cases) {
    UINTN lines = 99;
    PrintWrapped(wrapped.c_str(), &lines, 0, 0, 0, 0);
    EXPECT_EQ(lines, count) << testing_support::utf8(wrapped.c_str());
  }
  EXPECT_EQ(machine.transcript().size(), drawn) << "counting draws nothing";
  // The drawn lines are read on the System Information screen.
}

TEST_F(UiToolkit, ProgressBarShowsThePercentageAndFillsItsShare) {
  struct Case { bool wide; UINT64 percent; const char* label; int filled; };
  const Case cases[] = {{false, 0, " 00%", 0},  {false, 5, " 05%", 1},    {false, 50, " 50%", 16},
                        {false, 99, " 99%", 31}, {false, 100, "100%", 32}, {false, 250, "100%", 32},
                        {true, 37, " 37%", 14}};
  for (const Case& c : cases) {
    if (c.wide) wide();
    const int x = c.wide ? 5 : 4, w = c.wide ? 40 : 32, row = 3;
    mark(row);
    DrawProgressBar(c.percent, row);
    EXPECT_EQ(text(x - 1, row, w + 3), blanks(w / 2 - 1) + c.label + blanks(w - w / 2 - 1) + ".") << c.percent;
    for (int i = -1; i <= w; ++i) {
      const int expected = i < 0 || i == w ? 0x30 : i < c.filled ? 0x1F : 0x07;
      ASSERT_EQ(attr(x + i, row), expected) << c.percent << "% cell " << i;
    }
  }
}

TEST_F(UiToolkit, ScrollBarPlacesItsThumbAndArrows) {
  // track: '#' thumb (0x70), '.' track (0x00); empty when every line fits and nothing is drawn.
  struct Case { UINT64 total, visible, first; std::string track; };
  const Case cases[] = {{10, 10, 0, ""},            {5, 10, 0, ""},              {15, 10, 2, "..#####..."},
                        {15, 10, 5, ".....#####"},  {30, 10, 0, "#........."},  {30, 10, 10, "....#....."},
                        {30, 10, 20, ".........#"}, {20, 10, 10, ".........#"}};
  const int top = 4, column = 78;
  for (const Case& c : cases) {
    for (int row = top - 1; row <= top + 10; ++row) mark(row);
    DrawScrollBar(c.total, c.visible, c.first, top);
    std::string cells, track;
    for (int row = top - 1; row <= top + 10; ++row) cells += text(column, row, 1);
    for (int i = 0; i < 10; ++i) track += attr(column, top + i) == 0x70 ? '#' : attr(column, top + i) == 0 ? '.' : '?';
    if (c.track.empty()) {
      EXPECT_EQ(cells, std::string(12, '.')) << c.total << "/" << c.visible;
      continue;
    }
    EXPECT_EQ(cells, "\u25B2" + blanks(10) + "\u25BC") << c.total << "/" << c.first;
    EXPECT_EQ(track, c.track) << c.total << "/" << c.first;
    EXPECT_EQ(attr(column, top - 1) + attr(column, top + 10), 0x60);
  }
}

// Restoring the console around the clock, and its place at 100 x 31, is
// checked between the calls of a whole screen (screens: clock_between_calls).
TEST_F(UiToolkit, ClockRedrawsTheFieldsThatChanged) {
  struct Case { UINT8 force, hour, minute, second; const char* shown; };
  const Case cases[] = {{1, 12, 34, 56, "12:34:56"}, {0, 12, 34, 56, "xx:xx:56"}, {0, 12, 34, 0, "xx:34:00"},
                        {0, 12, 0, 56, "12:xx:56"},  {0, 13, 0, 0, "13:00:00"},  {1, 9, 5, 7, "09:05:07"}};
  for (const Case& c : cases) {
    const int column = static_cast<int>(ScreenColumns()) - 10, row = static_cast<int>(ScreenRows()) - 1;
    SetColour(0x4E);
    MoveCursor(column, row);
    PutText(u"xx:xx:xx");
    ClockTime = EFI_TIME{2024, 1, 1, c.hour, c.minute, c.second, 0, 0, 0, 0, 0};
    DrawClock(c.force);
    EXPECT_EQ(text(column, row, 8), c.shown);
    EXPECT_EQ(attr(column + 6, row), 0x0F);
  }
  ClockTime = EFI_TIME{};
}

TEST_F(UiToolkit, ScrollByKeyMovesTheTopWithinTheList) {
  struct Case { UINT16 scan; UINT64 top, total, visible, moved; bool redraw; };
  const Case cases[] = {
      {SCAN_UP, 5, 30, 10, 4, true},        {SCAN_UP, 0, 30, 10, 0, false},       {SCAN_DOWN, 5, 30, 10, 6, true},
      {SCAN_DOWN, 20, 30, 10, 20, false},   {SCAN_DOWN, 0, 10, 22, 0, false},     {SCAN_HOME, 7, 30, 10, 0, true},
      {SCAN_END, 3, 30, 10, 20, true},      {SCAN_END, 0, 10, 22, 0, true},       {SCAN_PAGE_UP, 15, 30, 10, 6, true},
      {SCAN_PAGE_UP, 5, 30, 10, 0, true},   {SCAN_PAGE_DOWN, 0, 30, 10, 9, true}, {SCAN_PAGE_DOWN, 15, 30, 10, 20, true},
      {SCAN_PAGE_DOWN, 0, 10, 22, 0, true}, {SCAN_LEFT, 7, 30, 10, 7, false},     {SCAN_NULL, 7, 30, 10, 7, false}};
  for (const Case& c : cases) {
    UINT64 top = c.top;
    EXPECT_EQ(ScrollByKey(EFI_INPUT_KEY{c.scan, u'a'}, &top, c.total, c.visible) != FALSE, c.redraw) << c.scan;
    EXPECT_EQ(top, c.moved) << "key " << c.scan << " from " << c.top << " of " << c.total;
  }
}

// What scrolled lines draw is checked on the scrolling screens (screens:
// system_info_screen, storage_log_view), the time lines under a run on the
// recovery screen.
TEST_F(UiToolkit, ElapsedTimeBorrowsAcrossFieldsAndMidnight) {
  struct Case { UINT8 from[3], to[3], span[3]; };  // hour, minute, second
  const Case cases[] = {{{10, 59, 50}, {11, 0, 10}, {0, 0, 20}}, {{10, 6, 50}, {11, 6, 10}, {0, 59, 20}},
                        {{9, 0, 0}, {9, 0, 0}, {0, 0, 0}},         {{23, 30, 0}, {1, 15, 30}, {1, 45, 30}}};
  const auto time = [](const UINT8* t) { return EFI_TIME{2024, 3, 9, t[0], t[1], t[2], 0, 0, 0, 0, 0}; };
  for (const Case& c : cases) {
    EFI_TIME span{};
    ElapsedTime(time(c.from), time(c.to), &span);
    EXPECT_EQ(std::tuple(span.Hour, span.Minute, span.Second), std::tuple(c.span[0], c.span[1], c.span[2]));
  }
}

TEST_F(UiToolkit, CheckBoxKeyTicksMovesAndConfirms) {
  const EFI_INPUT_KEY space{SCAN_NULL, CharSpace}, enter{SCAN_NULL, CharEnter}, up{SCAN_UP, 0}, down{SCAN_DOWN, 0};
  constexpr auto Several = ChoiceMode::Several, One = ChoiceMode::One;
  constexpr auto All = AllState::All, None = AllState::None, Some = AllState::Some;
  // Three entries: several choices have 7 lines (all-line 4, confirm 6), one choice 5 (confirm 4).
  // confirmed: the count a confirmation reports, 0 when the list keeps running.
  struct Case {
    ChoiceMode mode; const char* before; AllState all; UINT64 cursor; EFI_INPUT_KEY key;
    const char* after; AllState all_after; UINT64 cursor_after; UINT64 confirmed;
  };
  const Case cases[] = {
      // Ticking entries and the all-line.
      {Several, "010", Some, 1, space, "000", None, 1, 0}, {Several, "101", Some, 1, space, "111", All, 1, 0},
      {Several, "000", None, 4, space, "111", All, 4, 0},  {Several, "111", All, 4, space, "000", None, 4, 0},
      {One, "100", All, 2, space, "001", All, 2, 0},
      // Wrapping at both ends; moving over the blank lines is seen on the selection screen.
      {Several, "111", All, 6, down, "111", All, 0, 0},    {Several, "111", All, 0, up, "111", All, 6, 0},
      {One, "100", All, 2, down, "100", All, 4, 0},        {One, "100", All, 0, up, "100", All, 4, 0},
      // Confirming needs at least one ticked entry.
      {Several, "000", None, 0, enter, "000", None, 0, 0}, {Several, "101", Some, 0, enter, "101", Some, 0, 2},
      {Several, "010", Some, 6, space, "010", Some, 6, 1}, {One, "001", All, 2, enter, "001", All, 2, 1},
      // ESC leaves the list as it is.
      {Several, "101", Some, 0, {ScanEscape, 0}, "101", Some, 0, 0}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    UINT8 selection[3];
    for (int e = 0; e < 3; ++e) selection[e] = static_cast<UINT8>(c.before[e] - '0');
    UINT64 cursor = c.cursor, selected = 99;
    AllState all = c.all;
    UINT8 running = 1;
    const UINT64 lines = c.mode == Several ? 7 : 5;
    EXPECT_EQ(CheckBoxKey(c.key, &cursor, lines, 3, c.mode, selection, &all, &running, &selected),
              c.key.ScanCode == ScanEscape ? EFI_ABORTED : EFI_SUCCESS) << "case " << i;
    std::string ticks;
    for (UINT8 tick : selection) ticks += static_cast<char>('0' + tick);
    EXPECT_EQ(std::tuple(ticks, all, cursor, static_cast<int>(running), selected),
              std::tuple(std::string(c.after), c.all_after, c.cursor_after, c.confirmed == 0 ? 1 : 0,
                         c.confirmed == 0 ? 99u : c.confirmed))
        << "case " << i;
  }
}

// Message boxes are answered inside whole runs: a warning refused with ESC and
// a question answered N (RecoveryScreen.ARefusedWarningEndsTheFlowWithoutTheFinalView,
// RecoveryScreen.NoToTheRecoveryQuestionStillReachesTheFinalViewAndEscAsksTheToolToCancel),
// Y (RunScreen.AModulesQuestionGetsTheTechniciansAnswerNotTheKeyPoll), ENTER on
// an error and a success (FullVolumeSave).

}  // namespace
