// The text console (EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL): a screen of character
// cells in one of the profile's modes, behaving as firmware consoles do, and
// drawn on the host terminal when there is one.
//
// Tests read the screen back through the snapshot functions; the transcript
// keeps every character ever written, so text that was later overwritten or
// cleared can still be checked.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "efi/efi.h"
#include "hostfw/profile.h"
#include "hostfw/protocol_thunk.h"
#include "hostfw/screen_grid.h"

namespace hostfw {

class Machine;
class Terminal;

class ConsoleOut {
 public:
  using Cell = ScreenCell;

  // modes: the console modes, mode 0 first (80x25 when the list is empty).
  // terminal may be null: the screen is then only kept in memory.
  ConsoleOut(Machine& machine, const std::vector<ConsoleModeSize>& modes, Terminal* terminal);
  ~ConsoleOut();
  ConsoleOut(const ConsoleOut&) = delete;
  ConsoleOut& operator=(const ConsoleOut&) = delete;

  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* protocol() { return &instance_.protocol; }
  Events& events() const;

  // Whether the console can show the character (the glyphs of box drawing,
  // block elements, arrows and geometric shapes, and Latin-1), or handles it
  // as a control (CR, LF, backspace).
  static bool can_show(char16_t ch);

  // ---- Snapshot -------------------------------------------------------------
  const ScreenGrid& grid() const { return grid_; }
  int columns() const { return grid_.columns; }
  int rows() const { return grid_.rows; }
  Cell cell(int column, int row) const { return grid_.cell(column, row); }
  uint8_t attribute_at(int column, int row) const { return grid_.attribute_at(column, row); }
  std::string row_text(int row) const { return grid_.row_text(row); }
  std::string screen_text() const { return grid_.screen_text(); }
  // Whether the UTF-8 text appears on one row of the screen as it is now.
  bool contains(std::string_view utf8) const { return grid_.contains(utf8); }
  int cursor_column() const { return mode_.CursorColumn; }
  int cursor_row() const { return mode_.CursorRow; }
  bool cursor_visible() const { return mode_.CursorVisible != 0; }
  uint8_t attribute() const { return static_cast<uint8_t>(mode_.Attribute); }
  int mode() const { return mode_.Mode; }
  // Every character given to OutputString so far, in order, as UTF-8.
  const std::string& transcript() const { return transcript_; }
  // The screen text followed by a newline.
  void dump(std::ostream& out) const;

  // Keeps the screen as it is now under a name (a key script's "snap" step);
  // a later snapshot of the same name replaces it.
  void save_snapshot(const std::string& name);
  // The snapshot of that name; throws std::out_of_range when none was taken.
  const ScreenSnapshot& snapshot(const std::string& name) const;

  // Draws everything again when the terminal changed size since the last
  // drawing (or shows why the screen cannot be drawn). Called by the
  // console operations and while the keyboard is polled.
  void refresh_if_resized();

  // ---- The protocol's operations ---------------------------------------------
  EFI_STATUS reset();
  EFI_STATUS output_string(const CHAR16* text);
  EFI_STATUS test_string(const CHAR16* text) const;
  EFI_STATUS query_mode(UINTN mode, UINTN* columns, UINTN* rows) const;
  EFI_STATUS set_mode(UINTN mode);
  EFI_STATUS set_attribute(UINTN attribute);
  EFI_STATUS clear_screen();
  EFI_STATUS set_cursor_position(UINTN column, UINTN row);
  EFI_STATUS enable_cursor(bool visible);

 private:
  void fill(uint8_t attribute);
  void put(char16_t ch);
  void new_line();
  void scroll_up();

  // ---- Drawing on the terminal ---------------------------------------------
  void render();
  void draw_too_small();
  void invalidate_terminal();
  void move_terminal_cursor(int column, int row);
  void set_terminal_attribute(uint8_t attribute);

  HostedProtocol<EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL, ConsoleOut> instance_;
  Machine& machine_;
  std::vector<ConsoleModeSize> modes_;
  SIMPLE_TEXT_OUTPUT_MODE mode_{};
  ScreenGrid grid_;
  std::map<std::string, ScreenSnapshot> snapshots_;
  std::string transcript_;

  Terminal* terminal_;
  int terminal_columns_ = 0;
  int terminal_rows_ = 0;
  bool too_small_shown_ = false;
  std::vector<Cell> shown_;         // what the terminal shows of the screen
  std::vector<bool> dirty_rows_;    // rows that may differ from shown_
  int term_column_ = -1;            // the host cursor, -1 when unknown
  int term_row_ = -1;
  int term_attribute_ = -1;         // the colours in force on the terminal
  int term_cursor_visible_ = -1;
};

}  // namespace hostfw
