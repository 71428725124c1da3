// What a command talks to: its two outputs, and what is known of them. Tests put their own in
// place.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace vorlatch::cli {

enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

struct Terminal {
  std::function<void(std::string_view)> out;  // once it failed, it writes no more
  std::function<void(std::string_view)> err;
  // Lets the time pass; returns early when interrupted.
  std::function<void(std::chrono::milliseconds)> wait;
  // The time since some moment, as `wait` lets it pass.
  std::function<std::chrono::nanoseconds()> now = [] {
    return std::chrono::steady_clock::now().time_since_epoch();
  };
  // From here on SIGINT, SIGTERM and SIGHUP only show in `interrupted`. For commands that wait.
  std::function<void()> catch_signals = [] {};
  // Whether the user asked to stop, by Ctrl-C or a signal, or nobody takes the output any more.
  std::function<bool()> interrupted = [] { return false; };
  bool is_terminal = false;
  // Columns of the terminal that `out` is; 0 when it is none or does not know. Asked anew for each
  // picture.
  std::function<std::size_t()> columns = [] { return std::size_t{0}; };
  std::function<std::size_t()> rows = [] { return std::size_t{0}; };
  bool has_colour = false;

  // The text in the colour, or as it is where there are none.
  [[nodiscard]] std::string in(Colour colour, std::string_view text) const;
};

// The process's own standard streams.
Terminal processTerminal();

// The errno of the first write to standard output that failed; 0 when none did.
int outputError();

}  // namespace vorlatch::cli
