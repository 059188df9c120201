// A text screen as character cells: what the console shows, and what a test
// reads back, now or as it was at a snapshot.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hostfw {

struct ScreenCell {
  char16_t ch = u' ';
  uint8_t attribute = 0x07;
  bool operator==(const ScreenCell&) const = default;
};

struct ScreenGrid {
  int columns = 0;
  int rows = 0;
  std::vector<ScreenCell> cells;  // row by row

  void resize(int new_columns, int new_rows, ScreenCell fill);
  // A cell off the screen reads as {0, 0}.
  ScreenCell cell(int column, int row) const;
  uint8_t attribute_at(int column, int row) const { return cell(column, row).attribute; }
  // One row as UTF-8, full width.
  std::string row_text(int row) const;
  // Length characters of a row from a column, as UTF-8.
  std::string text_at(int column, int row, int length) const;
  // Every row with its trailing blanks removed, joined with '\n'.
  std::string screen_text() const;
  // Whether the UTF-8 text appears on one row.
  bool contains(std::string_view utf8) const;
};

// The console as a key script's "snap" step found it.
struct ScreenSnapshot {
  ScreenGrid grid;
  int mode = 0;
  int cursor_column = 0;
  int cursor_row = 0;
  bool cursor_visible = false;
  uint8_t attribute = 0;
};

}  // namespace hostfw
