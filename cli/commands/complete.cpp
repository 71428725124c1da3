// vorlatchctl __complete, which the shell completions in cli/completion/ call.
#include <array>
#include <set>
#include <string_view>

#include "base/display_text.h"
#include "cli/completion.h"
#include "control/nearest.h"

namespace vorlatch::cli {
namespace {

using Fits = bool (*)(std::string_view word, std::string_view unfinished);

// What a word must have in common with the unfinished one; the first rule that any word follows
// counts.
constexpr std::array<Fits, 3> kRules = {
    [](std::string_view word, std::string_view unfinished) { return word.starts_with(unfinished); },
    [](std::string_view word, std::string_view unfinished) {
      return control::containsIgnoringCase(word.substr(0, unfinished.size()), unfinished);
    },
    control::containsIgnoringCase};

// Prints the candidates for the last word, one per line.
ExitStatus complete(const Session& session, const Words& words) {
  const std::string unfinished = words.empty() ? std::string() : words.back();
  const Words candidates = wordsToComplete(words);
  std::set<std::string> shown;
  for (const Fits fits : kRules) {
    for (const std::string& word : candidates) {
      // Leaves out names that would break the list's lines or control the terminal.
      const bool is_harmless = visible(word) == word;
      if (is_harmless && fits(word, unfinished) && shown.insert(word).second) {
        session.terminal.out(word + "\n");
      }
    }
    if (!shown.empty()) break;
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto words = std::make_shared<Words>();
  arguments = {{.name = "WORD",
                .description = "the words so far, the unfinished one last",
                .value = words.get()}};
  return [words](const Session& session) { return complete(session, *words); };
}

const RegisteredCommand kComplete({
    .name = "__complete",
    .description = "the words that may stand next",
    .examples = "",
    .place = 0,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
