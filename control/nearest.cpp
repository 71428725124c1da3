#include "control/nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

#include "control/translation.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kLongestWord = 100;  // longer words get no suggestion
constexpr std::size_t kShortestPart = 3;   // shorter parts of words are in too many

bool isSameLetter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Returns the Levenshtein distance, with a swap of two neighbours counted as one edit. Keeps only
// the last three rows of the table.
std::size_t editsBetween(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before_last(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::swap(before_last, last);
    std::swap(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (isSameLetter(a[i - 1], b[j - 1]) ? 0 : 1);
      row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
      const bool swapped =
          i > 1 && j > 1 && isSameLetter(a[i - 1], b[j - 2]) && isSameLetter(a[i - 2], b[j - 1]);
      if (swapped) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> nearest(std::string_view word, std::span<const std::string> words) {
  if (word.size() > kLongestWord) return std::nullopt;
  std::optional<std::string> best;
  std::size_t fewest = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const std::string& candidate : words) {
    if (candidate.size() > kLongestWord) continue;
    const std::size_t edits = editsBetween(word, candidate);
    if (edits >= fewest) continue;
    fewest = edits;
    best = candidate;
  }
  if (best || word.size() < kShortestPart) return best;
  const auto whole = std::find_if(words.begin(), words.end(), [word](const std::string& candidate) {
    return containsIgnoringCase(candidate, word);
  });
  return whole != words.end() ? std::optional(*whole) : std::nullopt;
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
  return part.empty() || std::search(text.begin(), text.end(), part.begin(), part.end(),
                                     isSameLetter) != text.end();
}

std::string suggestion(std::string_view word, std::span<const std::string> words) {
  const std::optional<std::string> meant = nearest(word, words);
  return meant ? tr("; did you mean %s?", *meant) : std::string();
}

}  // namespace vorlatch::control
