#include "cli/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace vorlatch::cli {
namespace {

volatile std::sig_atomic_t stop_requested = 0;

void requestStop(int /*signal*/) {
  stop_requested = 1;
}

void catchSignals() {
  struct sigaction action {};
  action.sa_handler = requestStop;  // no SA_RESTART: a signal ends a wait
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // Keeps an ignored signal ignored, as nohup requires.
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

int output_error = 0;

// Returns true if the write may be retried. Waits first if a non-blocking descriptor is full.
bool mayTryAgain(int descriptor) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  pollfd writable{.fd = descriptor, .events = POLLOUT, .revents = 0};
  return ::poll(&writable, 1, -1) > 0 || errno == EINTR;
}

// Returns false and sets errno if not all of it could be written.
bool writeTo(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (!mayTryAgain(descriptor)) {
      return false;
    }
  }
  return true;
}

// Waits in pieces, because a signal that arrives just before poll() does not end it early.
void waitUnlessStopped(std::chrono::milliseconds duration) {
  constexpr std::chrono::milliseconds kPiece{1000};
  while (duration.count() > 0 && stop_requested == 0) {
    const auto piece = std::min(duration, kPiece);
    ::poll(nullptr, 0, static_cast<int>(piece.count()));
    duration -= piece;
  }
}

winsize windowSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
  return size;
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

std::string Terminal::in(Colour colour, std::string_view text) const {
  static constexpr std::array<const char*, 7> kCodes = {"", "1", "2", "31", "32", "33", "36"};
  if (!has_colour || colour == Colour::Plain || text.empty()) return std::string(text);
  return std::string("\x1b[") + kCodes.at(static_cast<std::size_t>(colour)) + "m" +
         std::string(text) + "\x1b[0m";
}

int outputError() {
  return output_error;
}

Terminal processTerminal() {
  const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
  Terminal terminal;
  terminal.out = [](std::string_view text) {
    if (output_error == 0 && !writeTo(STDOUT_FILENO, text)) output_error = errno;
  };
  terminal.err = [](std::string_view text) { static_cast<void>(writeTo(STDERR_FILENO, text)); };
  terminal.wait = waitUnlessStopped;
  terminal.catch_signals = catchSignals;
  terminal.interrupted = [] { return stop_requested != 0 || output_error != 0; };
  terminal.is_terminal = is_terminal;
  if (is_terminal) {
    terminal.columns = [] { return std::size_t{windowSize().ws_col}; };
    terminal.rows = [] { return std::size_t{windowSize().ws_row}; };
  }
  terminal.has_colour = is_terminal && variable("NO_COLOR").empty();
  terminal.variable = variable;
  terminal.wall_seconds = [] { return std::int64_t{std::time(nullptr)}; };
  return terminal;
}

}  // namespace vorlatch::cli
