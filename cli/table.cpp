#include "cli/table.h"

#include <algorithm>
#include <cstddef>

#include "base/display_text.h"
#include "control/translation.h"

namespace vorlatch::cli {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 4;

std::string padding(std::size_t width, std::string_view shown) {
  std::string blanks(width - std::min(width, displayWidth(shown)), ' ');
  return blanks;
}

}  // namespace

bool Table::isNumeric(std::size_t column) const {
  const auto has_digit = [column](const std::vector<Cell>& row) {
    return row[column].text.find_first_of("0123456789") != std::string::npos;
  };
  if (std::none_of(rows_.begin(), rows_.end(), has_digit)) return false;
  return std::all_of(rows_.begin(), rows_.end(), [column](const std::vector<Cell>& row) {
    return row[column].text.find_first_not_of("-0123456789") == std::string::npos;
  });
}

std::vector<Table::Shown> Table::fitInto(std::size_t columns) const {
  std::vector<Shown> shown;
  std::size_t total = 0;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t width = displayWidth(control::translated(columns_[i].heading));
    for (const auto& row : rows_) width = std::max(width, displayWidth(visible(row[i].text)));
    shown.push_back({.index = i, .width = width, .is_numeric = isNumeric(i)});
    total += width + (i == 0 ? 0 : kGap);
  }
  if (columns == 0) return shown;
  const auto by_rank = [this](const Shown& a, const Shown& b) {
    return columns_[a.index].rank < columns_[b.index].rank;
  };
  while (total > columns) {
    const auto last = std::max_element(shown.begin(), shown.end(), by_rank);
    if (columns_[last->index].rank == 0) break;
    total -= last->width + kGap;
    shown.erase(last);
  }
  const auto by_width_to_cut = [this](const Shown& a, const Shown& b) {
    return (columns_[a.index].is_typed ? 0 : a.width) < (columns_[b.index].is_typed ? 0 : b.width);
  };
  while (total > columns) {
    const auto widest = std::max_element(shown.begin(), shown.end(), by_width_to_cut);
    if (columns_[widest->index].is_typed || widest->width <= kNarrowest) break;
    --widest->width;
    --total;
  }
  return shown;
}

bool Table::fits(std::size_t columns) const {
  std::size_t least = 0;  // without the columns that may be left out
  for (const Shown& column : fitInto(0)) {
    if (columns_[column.index].rank == 0) least += column.width + kGap;
  }
  return least <= columns + kGap;
}

std::string Table::text(const Terminal& terminal) const {
  const std::vector<Shown> shown = fitInto(terminal.columns());
  std::string all;
  const auto add_line = [&](const auto& cell_of) {
    std::string line;
    for (const Shown& column : shown) {
      const Cell& cell = cell_of(column.index);
      const std::string cut = cutToWidth(visible(cell.text), column.width);
      const std::string coloured = terminal.in(cell.colour, cut);
      const std::string blanks = padding(column.width, cut);
      line += column.is_numeric ? blanks + coloured : coloured + blanks;
      line.append(kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    all += line + "\n";
  };
  std::vector<Cell> headings;
  for (const Column& column : columns_) {
    headings.emplace_back(control::translated(column.heading), Colour::Bold);
  }
  add_line([&](std::size_t i) -> const Cell& { return headings[i]; });
  for (const auto& row : rows_) add_line([&](std::size_t i) -> const Cell& { return row[i]; });
  return all;
}

std::string Table::blocks(const Terminal& terminal) const {
  std::string all;
  for (const auto& row : rows_) {
    const Cell& state = row.back();
    all += terminal.in(state.colour, visible(state.text)) + "  " +
           terminal.in(Colour::Bold, visible(row.front().text)) + "\n";
    std::string line;
    const auto end_line = [&] {
      if (!line.empty()) all += " " + line + "\n";
      line.clear();
    };
    for (std::size_t i = 1; i + 1 < row.size(); ++i) {
      if (row[i].text == "-") continue;
      const std::string item =
          std::string(" ") + control::translated(columns_[i].heading) + " " + visible(row[i].text);
      if (displayWidth(line) + displayWidth(item) + kGap > terminal.columns()) end_line();
      line += (line.empty() ? "" : " ") + item;
    }
    end_line();
  }
  return all;
}

}  // namespace vorlatch::cli
