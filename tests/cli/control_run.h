// vorlatchctl at work in a story: the command line that a user types, and all that comes back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "tests/support/story.h"

namespace vorlatch::tests {

struct Output {
  int status = -1;
  std::string out;
  std::string err;
  friend bool operator==(const Output&, const Output&) = default;
};

std::ostream& operator<<(std::ostream& stream, const Output& output);

// A story with a daemon's program in it, and a terminal to type commands at. Waiting lets the
// story's time pass.
class ControlStory : public Story {
 public:
  ControlStory();

  Output run(const std::vector<std::string>& arguments);
  // What comes of the work, which gives an exit status, at this terminal.
  Output run(const std::function<int(cli::Terminal&)>& work);

  // Launches a process that vorlatchctl takes for the daemon, though the story runs the daemon's
  // work itself. Gives its pid.
  std::int32_t launchDaemon();

  // What the terminal is like: no terminal but a pipe, unless said otherwise.
  std::size_t columns = 0;
  std::size_t rows = 0;
  bool has_colour = false;
  // Asked after each wait, with the number of waits so far; true is Ctrl-C.
  std::function<bool(int waits)> is_interrupted = [](int) { return false; };
};

}  // namespace vorlatch::tests
