#include "cli/table.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "base/display_text.h"

namespace vorlatch::cli {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 4;

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

std::vector<std::size_t> Table::widths(std::size_t columns) const {
  std::vector<std::size_t> widths;
  for (const std::string& heading : headings_) widths.push_back(displayWidth(heading));
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], displayWidth(visible(row[i].text)));
    }
  }
  if (columns == 0) return widths;
  const std::size_t gaps = kGap * (widths.size() - 1);
  std::size_t total = std::accumulate(widths.begin(), widths.end(), gaps);
  while (total > columns) {
    const auto widest = std::max_element(widths.begin(), widths.end());
    if (*widest <= kNarrowest) break;
    --*widest;
    --total;
  }
  return widths;
}

std::string Table::text(const Terminal& terminal) const {
  const std::vector<std::size_t> width = widths(terminal.columns());
  std::vector<bool> to_the_right;
  for (std::size_t i = 0; i < width.size(); ++i) to_the_right.push_back(isNumeric(i));

  std::string all;
  const auto add_line = [&](const std::vector<Cell>& row) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string shown = cutToWidth(visible(row[i].text), width[i]);
      const std::string padding(width[i] - std::min(width[i], displayWidth(shown)), ' ');
      const std::string coloured = terminal.in(row[i].colour, shown);
      line += to_the_right[i] ? padding + coloured : coloured + padding;
      line.append(kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    all += line + "\n";
  };
  std::vector<Cell> headings;
  for (const std::string& heading : headings_) headings.emplace_back(heading, Colour::Bold);
  add_line(headings);
  for (const auto& row : rows_) add_line(row);
  return all;
}

}  // namespace vorlatch::cli
