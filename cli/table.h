// Rows of text in aligned columns.
#pragma once

#include <string>
#include <vector>

#include "cli/terminal.h"

namespace vorlatch::cli {

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
  explicit Table(std::vector<std::string> headings) : headings_(std::move(headings)) {}

  void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

  // Returns all rows below a heading. On a terminal, cuts the widest columns until each line fits;
  // elsewhere cuts nothing. Aligns a column to the right if every cell is a number or '-'.
  [[nodiscard]] std::string text(const Terminal& terminal) const;

 private:
  [[nodiscard]] std::vector<std::size_t> widths(std::size_t columns) const;
  [[nodiscard]] bool isNumeric(std::size_t column) const;

  std::vector<std::string> headings_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace vorlatch::cli
