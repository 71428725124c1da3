// vorlatchctl at work in a story: the command line that a user types, and all that comes back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "tests/support/story.h"

namespace vorlatch::tests {

using plist::Array;
using plist::Dictionary;

using Arguments = Lines;

struct Output {
  int status = -1;
  std::string out;
  std::string err;
};

// A story with a daemon's program in it, and a terminal to type commands at. Waiting lets the
// story's time pass.
class ControlStory : public Story {
 public:
  ControlStory();

  // All that comes back from a command line, as one text: what is printed, then "err: " and the
  // errors, then "exit" and the exit status, where there are errors and where it is not 0. For the
  // paths of the daemon's files and of the root stand {preferences}, {status}, {log} and {root}.
  std::string answer(const Arguments& arguments);
  // Likewise; blanks divide the line into arguments.
  std::string answer(const std::string& line);

  Output run(const Arguments& arguments);

  // Launches a process that vorlatchctl takes for the daemon, though the story runs the daemon's
  // work itself. Gives its pid.
  std::int32_t launchDaemon();

  // Installs an app in the folder of apps, and gives the path of its executable. The home screen
  // shows it under an English and a Chinese name.
  std::string installApp(const std::string& executable, const std::string& bundle_identifier,
                         const std::string& english_name, const std::string& chinese_name);
  using Story::installApp;

  // What the terminal is like: no terminal but a pipe, unless said otherwise.
  std::size_t columns = 0;
  std::size_t rows = 0;
  bool has_colour = false;
  std::map<std::string, std::string> variables;  // of the environment
  // Asked after each wait, with the number of waits so far; true is Ctrl-C.
  std::function<bool(int waits)> is_interrupted = [](int) { return false; };
};

// The dictionary that is written so in JSON.
Dictionary dictionary(const std::string& json);
// The object as vorlatchctl prints it, behind the version of its form.
std::string pretty(const std::string& json);

Arguments wordsOf(const std::string& line);

// The answer of a command that cannot read the preferences.
inline constexpr const char* kNoPreferences =
    "err: vorlatchctl: {preferences} is no property list with a dictionary, and is left as it is; "
    "vorlatchctl check says more, vorlatchctl undo puts an earlier one back, vorlatchctl preset "
    "--replace-file starts afresh\nexit 3\n";

}  // namespace vorlatch::tests
