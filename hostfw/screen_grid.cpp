#include "hostfw/screen_grid.h"

#include "hostfw/utf8.h"

namespace hostfw {

void ScreenGrid::resize(int new_columns, int new_rows, ScreenCell fill) {
  columns = new_columns;
  rows = new_rows;
  cells.assign(static_cast<size_t>(columns) * rows, fill);
}

ScreenCell ScreenGrid::cell(int column, int row) const {
  if (column < 0 || row < 0 || column >= columns || row >= rows) return ScreenCell{0, 0};
  return cells[static_cast<size_t>(row) * columns + column];
}

std::string ScreenGrid::text_at(int column, int row, int length) const {
  std::string text;
  for (int c = column; c < column + length && c < columns; ++c) append_utf8(text, cell(c, row).ch);
  return text;
}

std::string ScreenGrid::row_text(int row) const {
  if (row < 0 || row >= rows) return std::string();
  return text_at(0, row, columns);
}

std::string ScreenGrid::screen_text() const {
  std::string text;
  for (int row = 0; row < rows; ++row) {
    std::string line = row_text(row);
    line.erase(line.find_last_not_of(' ') + 1);
    if (row > 0) text.push_back('\n');
    text += line;
  }
  return text;
}

bool ScreenGrid::contains(std::string_view utf8) const {
  for (int row = 0; row < rows; ++row)
    if (row_text(row).find(utf8) != std::string::npos) return true;
  return false;
}

}  // namespace hostfw
