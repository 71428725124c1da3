// Puts texts together, and takes tables apart.
#pragma once

#include <sstream>
#include <string>

namespace vorlatch::tests {

// The values one after the other, as a stream prints them.
template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream stream;
  (stream << ... << parts);
  return stream.str();
}

// The lines of a table below the first `lines_above`, with " | " between the cells, however wide
// the columns are.
inline std::string rowsOf(std::string table, int lines_above) {
  for (int line = 0; line < lines_above; ++line) table.erase(0, table.find('\n') + 1);
  std::string rows;
  for (const char c : table) {
    if (c == ' ' && (rows.empty() || rows.back() == '\n')) continue;
    if (c != ' ' && rows.ends_with("  ")) {
      rows.replace(rows.find_last_not_of(' ') + 1, rows.npos, " | ");
    }
    rows += c;
  }
  return rows;
}

}  // namespace vorlatch::tests
