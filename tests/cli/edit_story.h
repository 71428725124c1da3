// Edits in a story: what is said, what is written, and whether the daemon is told.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {

// What one command did.
struct EditResult {
  std::string answer;
  std::optional<std::string> written = std::nullopt;  // nothing: the file was left alone
  int posts = 0;                                      // that reached the daemon
  friend bool operator==(const EditResult&, const EditResult&) = default;
};

std::ostream& operator<<(std::ostream& stream, const EditResult& result);

class EditStory : public ControlStory {
 public:
  EditStory();

  // Types the command and lets the daemon hear what was posted. Fails the test when a written file
  // has not the mode 0666, or when the command leaves another file beside it.
  EditResult edit(const Arguments& arguments);
  EditResult edit(const std::string& line) { return edit(wordsOf(line)); }

  // The edit prints the changes and turns the preferences from before into after; with --dry-run it
  // writes nothing, and with --no-apply it does not tell the daemon. The hint is printed last.
  void expectEdit(const Arguments& arguments, const Dictionary& before, const std::string& changes,
                  const Dictionary& after, const std::string& hint = "");
  // The command gives this answer and changes nothing, with and without the option.
  void expectRefusal(const Arguments& arguments, const std::string& option,
                     const std::string& answer);

  [[nodiscard]] std::string bytes() const { return readAll(preferencesFile()); }

 private:
  int posts_ = 0;
};

std::string xml(const Dictionary& preferences);

// Said behind an edit of preferences that are switched off.
inline constexpr const char* kOffHint =
    "the daemon is switched off; vorlatchctl enable switches it on\n";

}  // namespace vorlatch::tests
