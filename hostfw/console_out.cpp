#include "hostfw/console_out.h"

#include <algorithm>
#include <cstdio>

#include "hostfw/machine.h"
#include "hostfw/terminal.h"
#include "hostfw/utf8.h"

namespace hostfw {
namespace {

constexpr uint8_t kDefaultAttribute = EFI_TEXT_ATTR(EFI_LIGHTGRAY, EFI_BLACK);
// A cell the terminal is known not to show, so that it is drawn.
constexpr ConsoleOut::Cell kUnknownCell{0xFFFF, 0xFF};


// Under the virtual clock every console operation takes this long, as
// drawing takes time on a real console. It is how timer notifications (the
// run screen's key poll above all) reach a long loop that calls nothing but
// its progress drawing, the same way on every run.
constexpr uint64_t kVirtualOperationNs = 20 * 1000;

// Firmware consoles hold TPL_NOTIFY while they work, so timer notifications
// never run inside them. The screen is brought to the terminal (when there
// is one to draw on) before the priority drops again; timers that fell due
// meanwhile run when it drops.
class Operation {
 public:
  Operation(Events& events, ConsoleOut* draw_on_exit)
      : events_(events), guard_(events, TPL_NOTIFY), console_(draw_on_exit) {}
  ~Operation() {
    if (console_ != nullptr) console_->refresh_if_resized();
    events_.let_virtual_time_pass(kVirtualOperationNs);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

 private:
  Events& events_;
  TplGuard guard_;  // released after the screen is drawn
  ConsoleOut* console_;
};

}  // namespace

// The protocol's entry points.
namespace {

EFIAPI EFI_STATUS Reset(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, BOOLEAN) {
  return serve<ConsoleOut>(This, [](ConsoleOut& c) { return c.reset(); });
}
EFIAPI EFI_STATUS OutputString(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, CHAR16* text) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.output_string(text); });
}
EFIAPI EFI_STATUS TestString(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, CHAR16* text) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.test_string(text); });
}
EFIAPI EFI_STATUS QueryMode(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, UINTN mode, UINTN* columns, UINTN* rows) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.query_mode(mode, columns, rows); });
}
EFIAPI EFI_STATUS SetMode(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, UINTN mode) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.set_mode(mode); });
}
EFIAPI EFI_STATUS SetAttribute(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, UINTN attribute) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.set_attribute(attribute); });
}
EFIAPI EFI_STATUS ClearScreen(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This) {
  return serve<ConsoleOut>(This, [](ConsoleOut& c) { return c.clear_screen(); });
}
EFIAPI EFI_STATUS SetCursorPosition(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, UINTN column, UINTN row) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.set_cursor_position(column, row); });
}
EFIAPI EFI_STATUS EnableCursor(EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* This, BOOLEAN visible) {
  return serve<ConsoleOut>(This, [&](ConsoleOut& c) { return c.enable_cursor(visible != 0); });
}

}  // namespace

ConsoleOut::ConsoleOut(Machine& machine, const std::vector<ConsoleModeSize>& modes, Terminal* terminal)
    : machine_(machine), modes_(modes), terminal_(terminal) {
  if (modes_.empty()) modes_ = {{80, 25}, {80, 50}, {100, 31}};
  for (ConsoleModeSize& m : modes_) {
    m.columns = std::max(m.columns, 1);
    m.rows = std::max(m.rows, 1);
  }
  instance_.protocol.Reset = Reset;
  instance_.protocol.OutputString = OutputString;
  instance_.protocol.TestString = TestString;
  instance_.protocol.QueryMode = QueryMode;
  instance_.protocol.SetMode = SetMode;
  instance_.protocol.SetAttribute = SetAttribute;
  instance_.protocol.ClearScreen = ClearScreen;
  instance_.protocol.SetCursorPosition = SetCursorPosition;
  instance_.protocol.EnableCursor = EnableCursor;
  instance_.protocol.Mode = &mode_;
  instance_.owner = this;

  mode_.MaxMode = static_cast<INT32>(modes_.size());
  mode_.Mode = 0;
  mode_.Attribute = kDefaultAttribute;
  mode_.CursorVisible = TRUE;
  grid_.resize(modes_[0].columns, modes_[0].rows, Cell{u' ', kDefaultAttribute});
  dirty_rows_.assign(grid_.rows, true);

  if (terminal_ != nullptr) {
    const TerminalSize size = terminal_->size();
    terminal_columns_ = size.columns;
    terminal_rows_ = size.rows;
    invalidate_terminal();
    render();
  }
}

ConsoleOut::~ConsoleOut() = default;

Events& ConsoleOut::events() const { return machine_.events(); }

bool ConsoleOut::can_show(char16_t ch) {
  if (ch == u'\r' || ch == u'\n' || ch == u'\b') return true;
  if (ch >= 0x20 && ch <= 0x7E) return true;
  if (ch >= 0xA0 && ch <= 0xFF) return true;
  if (ch >= 0x2190 && ch <= 0x2193) return true;  // arrows
  if (ch >= 0x2500 && ch <= 0x259F) return true;  // box drawing, block elements
  if (ch >= 0x25A0 && ch <= 0x25FF) return true;  // geometric shapes
  return false;
}

// ---- Snapshot -------------------------------------------------------------------

void ConsoleOut::dump(std::ostream& out) const { out << screen_text() << '\n'; }

void ConsoleOut::save_snapshot(const std::string& name) {
  snapshots_[name] = ScreenSnapshot{grid_, mode_.Mode, mode_.CursorColumn, mode_.CursorRow, mode_.CursorVisible != 0,
                                    static_cast<uint8_t>(mode_.Attribute)};
}

const ScreenSnapshot& ConsoleOut::snapshot(const std::string& name) const { return snapshots_.at(name); }

// ---- Operations -------------------------------------------------------------------

EFI_STATUS ConsoleOut::reset() {
  Operation op(machine_.events(), this);
  mode_.Attribute = kDefaultAttribute;
  fill(kDefaultAttribute);
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::output_string(const CHAR16* text) {
  if (text == nullptr) return EFI_INVALID_PARAMETER;
  Operation op(machine_.events(), this);
  EFI_STATUS status = EFI_SUCCESS;
  transcript_ += utf8_from_utf16(text);
  for (const CHAR16* p = text; *p != 0; ++p) {
    const char16_t ch = *p;
    switch (ch) {
      case u'\r':
        mode_.CursorColumn = 0;
        break;
      case u'\n':
        new_line();
        break;
      case u'\b':
        if (mode_.CursorColumn > 0) --mode_.CursorColumn;
        break;
      default:
        if (can_show(ch)) {
          put(ch);
        } else {
          put(u'?');
          status = EFI_WARN_UNKNOWN_GLYPH;
        }
        break;
    }
  }
  return status;
}

EFI_STATUS ConsoleOut::test_string(const CHAR16* text) const {
  if (text == nullptr) return EFI_INVALID_PARAMETER;
  Operation op(machine_.events(), nullptr);
  for (const CHAR16* p = text; *p != 0; ++p)
    if (!can_show(*p)) return EFI_UNSUPPORTED;
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::query_mode(UINTN mode, UINTN* columns, UINTN* rows) const {
  if (mode >= modes_.size()) return EFI_UNSUPPORTED;
  if (columns == nullptr || rows == nullptr) return EFI_INVALID_PARAMETER;
  Operation op(machine_.events(), nullptr);
  *columns = static_cast<UINTN>(modes_[mode].columns);
  *rows = static_cast<UINTN>(modes_[mode].rows);
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::set_mode(UINTN mode) {
  if (mode >= modes_.size()) return EFI_UNSUPPORTED;
  Operation op(machine_.events(), this);
  mode_.Mode = static_cast<INT32>(mode);
  grid_.resize(modes_[mode].columns, modes_[mode].rows, Cell{});
  dirty_rows_.assign(grid_.rows, true);
  fill(static_cast<uint8_t>(mode_.Attribute));
  if (terminal_ != nullptr) invalidate_terminal();  // the old mode may have been larger
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::set_attribute(UINTN attribute) {
  if (attribute > 0x7F) return EFI_UNSUPPORTED;
  Operation op(machine_.events(), nullptr);
  mode_.Attribute = static_cast<INT32>(attribute);
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::clear_screen() {
  Operation op(machine_.events(), this);
  fill(static_cast<uint8_t>(mode_.Attribute));
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::set_cursor_position(UINTN column, UINTN row) {
  if (column >= static_cast<UINTN>(grid_.columns) || row >= static_cast<UINTN>(grid_.rows)) return EFI_UNSUPPORTED;
  Operation op(machine_.events(), this);
  const int refused_from = modes_[static_cast<size_t>(mode_.Mode)].first_refused_column;
  if (refused_from > 0 && column >= static_cast<UINTN>(refused_from)) return EFI_UNSUPPORTED;
  mode_.CursorColumn = static_cast<INT32>(column);
  mode_.CursorRow = static_cast<INT32>(row);
  return EFI_SUCCESS;
}

EFI_STATUS ConsoleOut::enable_cursor(bool visible) {
  Operation op(machine_.events(), this);
  mode_.CursorVisible = visible ? TRUE : FALSE;
  return EFI_SUCCESS;
}

// ---- The screen -------------------------------------------------------------------

void ConsoleOut::fill(uint8_t attribute) {
  std::fill(grid_.cells.begin(), grid_.cells.end(), Cell{u' ', attribute});
  std::fill(dirty_rows_.begin(), dirty_rows_.end(), true);
  mode_.CursorColumn = 0;
  mode_.CursorRow = 0;
}

// A character at the cursor; the cursor moves on, to the next row after the
// last column.
void ConsoleOut::put(char16_t ch) {
  const int row = mode_.CursorRow;
  grid_.cells[static_cast<size_t>(row) * grid_.columns + mode_.CursorColumn] =
      Cell{ch, static_cast<uint8_t>(mode_.Attribute)};
  dirty_rows_[row] = true;
  if (mode_.CursorColumn + 1 >= grid_.columns) {
    mode_.CursorColumn = 0;
    new_line();
  } else {
    ++mode_.CursorColumn;
  }
}

void ConsoleOut::new_line() {
  if (mode_.CursorRow + 1 < grid_.rows) {
    ++mode_.CursorRow;
  } else {
    scroll_up();
  }
}

void ConsoleOut::scroll_up() {
  std::move(grid_.cells.begin() + grid_.columns, grid_.cells.end(), grid_.cells.begin());
  std::fill(grid_.cells.end() - grid_.columns, grid_.cells.end(), Cell{u' ', static_cast<uint8_t>(mode_.Attribute)});
  std::fill(dirty_rows_.begin(), dirty_rows_.end(), true);
}

// ---- Drawing on the terminal -----------------------------------------------------

void ConsoleOut::refresh_if_resized() {
  if (terminal_ == nullptr || !terminal_->active()) return;
  if (terminal_->take_resized()) {
    const TerminalSize size = terminal_->size();
    terminal_columns_ = size.columns;
    terminal_rows_ = size.rows;
    invalidate_terminal();
  }
  render();
}

void ConsoleOut::invalidate_terminal() {
  if (terminal_ == nullptr) return;
  terminal_->write("\x1b[0m\x1b[2J");
  shown_.assign(grid_.cells.size(), kUnknownCell);
  dirty_rows_.assign(grid_.rows, true);
  too_small_shown_ = false;
  term_column_ = term_row_ = -1;
  term_attribute_ = -1;
  term_cursor_visible_ = -1;
}

// Brings the terminal up to date with the screen: only cells that changed
// since the last drawing are sent.
void ConsoleOut::render() {
  if (terminal_ == nullptr || !terminal_->active()) return;
  if (terminal_columns_ < grid_.columns || terminal_rows_ < grid_.rows) {
    if (!too_small_shown_) draw_too_small();
    terminal_->flush();
    return;
  }
  if (too_small_shown_) invalidate_terminal();
  if (shown_.size() != grid_.cells.size()) shown_.assign(grid_.cells.size(), kUnknownCell);

  for (int row = 0; row < grid_.rows; ++row) {
    if (!dirty_rows_[row]) continue;
    dirty_rows_[row] = false;
    for (int column = 0; column < grid_.columns; ++column) {
      const size_t i = static_cast<size_t>(row) * grid_.columns + column;
      if (grid_.cells[i] == shown_[i]) continue;
      move_terminal_cursor(column, row);
      set_terminal_attribute(grid_.cells[i].attribute);
      std::string glyph;
      append_utf8(glyph, grid_.cells[i].ch);
      terminal_->write(glyph);
      shown_[i] = grid_.cells[i];
      // Without automatic wrap the host cursor stays in the last column.
      term_column_ = column + 1 < terminal_columns_ ? column + 1 : -1;
    }
  }

  if (mode_.CursorVisible) {
    move_terminal_cursor(mode_.CursorColumn, mode_.CursorRow);
    if (term_cursor_visible_ != 1) terminal_->write("\x1b[?25h");
    term_cursor_visible_ = 1;
  } else {
    if (term_cursor_visible_ != 0) terminal_->write("\x1b[?25l");
    term_cursor_visible_ = 0;
  }
  terminal_->flush();
}

// The screen does not fit: a plain message in the middle of the terminal
// instead of a garbled screen, until the window is made large enough.
void ConsoleOut::draw_too_small() {
  const std::string message = "Terminal too small: Tarvik needs " + std::to_string(grid_.columns) + "x" +
                              std::to_string(grid_.rows) + ", this terminal is " + std::to_string(terminal_columns_) +
                              "x" + std::to_string(terminal_rows_) + ". Enlarge the window.";
  const size_t width = static_cast<size_t>(std::max(terminal_columns_, 1));
  std::vector<std::string> lines;
  std::string line;
  size_t start = 0;
  while (start < message.size()) {
    size_t end = message.find(' ', start);
    if (end == std::string::npos) end = message.size();
    std::string word = message.substr(start, end - start);
    start = end + 1;
    while (word.size() > width) {  // a word longer than the terminal is cut
      if (!line.empty()) lines.push_back(std::move(line));
      lines.push_back(word.substr(0, width));
      word.erase(0, width);
      line.clear();
    }
    if (line.empty()) {
      line = word;
    } else if (line.size() + 1 + word.size() <= width) {
      line += " " + word;
    } else {
      lines.push_back(std::move(line));
      line = word;
    }
  }
  if (!line.empty()) lines.push_back(std::move(line));

  terminal_->write("\x1b[0m\x1b[2J\x1b[?25l");
  const int top = std::max(0, (terminal_rows_ - static_cast<int>(lines.size())) / 2);
  for (size_t i = 0; i < lines.size() && top + static_cast<int>(i) < std::max(terminal_rows_, 1); ++i) {
    const int left = std::max(0, (terminal_columns_ - static_cast<int>(lines[i].size())) / 2);
    char position[32];
    std::snprintf(position, sizeof(position), "\x1b[%d;%dH", top + static_cast<int>(i) + 1, left + 1);
    terminal_->write(position);
    terminal_->write(lines[i]);
  }
  too_small_shown_ = true;
  term_column_ = term_row_ = -1;
  term_attribute_ = -1;
  term_cursor_visible_ = 0;
}

void ConsoleOut::move_terminal_cursor(int column, int row) {
  if (term_column_ == column && term_row_ == row) return;
  char sequence[32];
  std::snprintf(sequence, sizeof(sequence), "\x1b[%d;%dH", row + 1, column + 1);
  terminal_->write(sequence);
  term_column_ = column;
  term_row_ = row;
}

// UEFI colours in ANSI terms: the same eight colours in a different order.
void ConsoleOut::set_terminal_attribute(uint8_t attribute) {
  if (term_attribute_ == attribute) return;
  static constexpr int kAnsiColour[8] = {0, 4, 2, 6, 1, 5, 3, 7};
  const int foreground = attribute & 0x0F;
  const int background = (attribute >> 4) & 0x07;
  const int fg_code = foreground < 8 ? 30 + kAnsiColour[foreground] : 90 + kAnsiColour[foreground - 8];
  const int bg_code = 40 + kAnsiColour[background];
  char sequence[32];
  std::snprintf(sequence, sizeof(sequence), "\x1b[0;%d;%dm", fg_code, bg_code);
  terminal_->write(sequence);
  term_attribute_ = attribute;
}

}  // namespace hostfw
