// Text as it is shown: how wide it is, and without what would command the terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlatch::cli {

// The text with control characters and bytes that are not UTF-8 spelled out (^[, \xFF), so that no
// process name, preferences key or log line commands the terminal.
std::string visible(std::string_view text);

// The columns that visible text takes: 2 for a wide (Chinese) character, 0 for a combining one.
std::size_t displayWidth(std::string_view text);

// Visible text cut to so many columns, with an ellipsis where something went.
std::string cutToWidth(std::string_view text, std::size_t columns);

}  // namespace vorlatch::cli
