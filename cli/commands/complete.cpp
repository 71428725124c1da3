// vorlatchctl __complete, which the shell completions in cli/completion/ call.
#include <set>

#include "base/display_text.h"
#include "cli/completion.h"

namespace vorlatch::cli {
namespace {

// Prints the candidates for the last word, one per line.
ExitStatus complete(const Session& session, const Words& words) {
  const std::string unfinished = words.empty() ? std::string() : words.back();
  std::set<std::string> shown;
  for (const std::string& word : wordsToComplete(words)) {
    // Leaves out names that would break the list's lines or control the terminal.
    const bool fits = visible(word) == word;
    if (fits && word.starts_with(unfinished) && shown.insert(word).second) {
      session.terminal.out(word + "\n");
    }
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
