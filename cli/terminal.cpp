#include "cli/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace vorlatch::cli {
namespace {

volatile std::sig_atomic_t stop_requested = 0;

void requestStop(int /*signal*/) {
  stop_requested = 1;
}

void catchSignals() {
  struct sigaction action {};
  action.sa_handler = requestStop;  // not restarting: a wait ends when a signal comes
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // What was started with nohup stays deaf to it.
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

void writeTo(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    // Nobody reads any more; there is nobody to tell either.
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

winsize windowSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
  return size;
}

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

std::string Terminal::in(Colour colour, std::string_view text) const {
  static constexpr std::array<const char*, 7> kCodes = {"", "1", "2", "31", "32", "33", "36"};
  if (!has_colour || colour == Colour::Plain || text.empty()) return std::string(text);
  return std::string("\x1b[") + kCodes.at(static_cast<std::size_t>(colour)) + "m" +
         std::string(text) + "\x1b[0m";
}

Terminal processTerminal() {
  catchSignals();
  const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
  Terminal terminal;
  terminal.out = [](std::string_view text) { writeTo(STDOUT_FILENO, text); };
  terminal.err = [](std::string_view text) { writeTo(STDERR_FILENO, text); };
  terminal.wait = [](std::chrono::milliseconds duration) {
    if (stop_requested == 0) ::poll(nullptr, 0, static_cast<int>(duration.count()));
  };
  terminal.interrupted = [] { return stop_requested != 0; };
  if (is_terminal) {
    terminal.columns = [] { return std::max<std::size_t>(windowSize().ws_col, 1); };
    terminal.rows = [] { return std::size_t{windowSize().ws_row}; };
  }
  terminal.has_colour = is_terminal && !isSet("NO_COLOR");
  return terminal;
}

}  // namespace vorlatch::cli
