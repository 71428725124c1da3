// A command's two outputs and their properties. Tests replace them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace vorlatch::cli {

enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

struct Terminal {
  std::function<void(std::string_view)> out;  // after a failed write, discards all
  std::function<void(std::string_view)> err;
  // Waits for the given time; returns early if interrupted.
  std::function<void(std::chrono::milliseconds)> wait;
  // Returns the time since a fixed moment, on the clock that `wait` follows.
  std::function<std::chrono::nanoseconds()> now = [] {
    return std::chrono::steady_clock::now().time_since_epoch();
  };
  // Makes SIGINT, SIGTERM and SIGHUP set `interrupted` instead of ending the program. Called by
  // commands that wait.
  std::function<void()> catch_signals = [] {};
  // Returns true after Ctrl-C or a signal, or after a failed write to the output.
  std::function<bool()> interrupted = [] { return false; };
  bool is_terminal = false;
  // Return the terminal's current width and height in characters; 0 if `out` is no terminal or its
  // size is unknown.
  std::function<std::size_t()> columns = [] { return std::size_t{0}; };
  std::function<std::size_t()> rows = [] { return std::size_t{0}; };
  bool has_colour = false;
  // Returns the value of an environment variable; empty if it is unset.
  std::function<std::string(const char* name)> variable = [](const char*) { return std::string(); };
  // Returns the seconds since 1970.
  std::function<std::int64_t()> wall_seconds = [] { return std::int64_t{0}; };

  // Returns the text in the colour, or unchanged if the terminal has no colours.
  [[nodiscard]] std::string in(Colour colour, std::string_view text) const;
};

// The process's own standard streams.
Terminal processTerminal();

// Returns the errno of the first failed write to standard output; 0 if none failed.
int outputError();

}  // namespace vorlatch::cli
