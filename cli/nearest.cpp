#include "cli/nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <vector>

namespace vorlatch::cli {
namespace {

constexpr std::size_t kLongestWord = 100;  // a longer one is no slip of the keyboard

bool isSameLetter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Levenshtein's distance, one row of its table at a time.
std::size_t editsBetween(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (isSameLetter(a[i - 1], b[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
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
  return best;
}

std::string suggestion(std::string_view word, std::span<const std::string> words) {
  const std::optional<std::string> meant = nearest(word, words);
  return meant ? "; did you mean " + *meant + "?" : std::string();
}

}  // namespace vorlatch::cli
