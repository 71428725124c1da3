// Suggests the word that a user probably meant.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vorlatch::control {

// Returns the word that needs the fewest edits of one character or swaps of two neighbours,
// ignoring case. If that is more than a third of `word`'s length and more than one, returns the
// first word that contains `word`, if it has three bytes or more, or std::nullopt.
std::optional<std::string> nearest(std::string_view word, std::span<const std::string> words);

// Returns true if the part occurs in the text, with ASCII letters of either case as equal. An empty
// part occurs in every text.
bool containsIgnoringCase(std::string_view text, std::string_view part);

// Returns "; did you mean X?", or an empty string if no word is near.
std::string suggestion(std::string_view word, std::span<const std::string> words);

}  // namespace vorlatch::control
