// Makes text safe to print on a terminal, and measures and shortens it in terminal columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorlatch {

// Returns the text with control characters, changes of direction and invalid UTF-8 spelled out, for
// example ^[ and \xFF, so that no process name, preferences key or log line can command the
// terminal.
std::string visible(std::string_view text);

// Returns JSON text with DEL, C1 controls and changes of text direction as \u escapes. Expects JSON
// without raw C0 controls in its strings; line breaks and spaces between values stay.
std::string commandsEscaped(std::string_view json);

// Returns the columns that visible text takes: 2 for a wide (East Asian) character, 0 for a
// combining mark of Latin, Greek, Cyrillic, kana or Hangul, 1 for any other character.
std::size_t displayWidth(std::string_view text);

// Returns visible text in lines of at most `columns`. Breaks lines at blanks, beside wide
// characters, and inside words that are longer than a line.
std::vector<std::string> wrappedToWidth(std::string_view text, std::size_t columns);

// Returns visible text shortened to at most `columns`, with an ellipsis if anything was removed.
std::string cutToWidth(std::string_view text, std::size_t columns);

}  // namespace vorlatch
