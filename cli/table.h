// Rows of text in aligned columns or, on a narrow screen, in blocks.
#pragma once

#include <string>
#include <vector>

#include "cli/terminal.h"

namespace vorlatch::cli {

struct Column {
  const char* heading;  // in English
  // On a narrow screen, the columns with the highest rank are left out first; 0: never left out.
  int rank = 0;
  bool is_typed = false;  // names that users type; never cut
};

struct Cell {
  // Implicit, so that a row can be written as a list of texts.
  Cell(std::string cell_text, Colour cell_colour = Colour::Plain)
      : text(std::move(cell_text)), colour(cell_colour) {}
  Cell(const char* cell_text) : text(cell_text) {}

  std::string text;  // printed through visible()
  Colour colour = Colour::Plain;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

  // Returns all rows below a heading. On a terminal, leaves out columns and then cuts the widest
  // until each line fits; elsewhere shows everything. Aligns a column to the right if every cell is
  // a number or '-'.
  [[nodiscard]] std::string text(const Terminal& terminal) const;

  // Returns true if no cell needs to be cut on a screen of so many columns.
  [[nodiscard]] bool fits(std::size_t columns) const;

  // Returns a block per row: the first cell and the last one, which names it and its state, then
  // the other cells behind their headings, as many in a line as fit. Leaves out cells that are '-'.
  [[nodiscard]] std::string blocks(const Terminal& terminal) const;

 private:
  // The columns that are shown. `columns` is the width of the screen; 0: no limit.
  struct Shown {
    std::size_t index;
    std::size_t width;
    bool is_numeric;
  };
  [[nodiscard]] std::vector<Shown> fitInto(std::size_t columns) const;
  [[nodiscard]] bool isNumeric(std::size_t column) const;

  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace vorlatch::cli
