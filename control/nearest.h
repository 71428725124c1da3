// The word that was probably meant.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vorlatch::control {

// The nearest of the words by edits of one character or swaps of two (case does not count), unless
// it takes more than a third of the word.
std::optional<std::string> nearest(std::string_view word, std::span<const std::string> words);

// "; did you mean X?", or nothing when no word is near.
std::string suggestion(std::string_view word, std::span<const std::string> words);

}  // namespace vorlatch::control
