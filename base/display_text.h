// Text as it is shown: how wide it is, and without what would command the terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlatch {

// The text with control characters and bytes that are not UTF-8 spelled out (^[, \xFF), so that no
// process name, preferences key or log line commands the terminal.
std::string visible(std::string_view text);

// JSON text with the same characters as \u escapes; its line ends and blanks are left.
std::string commandsEscaped(std::string_view json);

// The columns that visible text takes: 2 for a wide (East Asian) character, 0 for a combining mark
// of Latin, Greek, Cyrillic, kana or Hangul; of rarer scripts each counts 1.
std::size_t displayWidth(std::string_view text);

// Visible text cut to so many columns, with an ellipsis where something went.
std::string cutToWidth(std::string_view text, std::size_t columns);

}  // namespace vorlatch
