#include "platform/listening_socket.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace vorlatch::platform {
namespace {

constexpr int kFirstDescriptor = 3;

// Returns the number in an environment variable; -1 if there is none.
int numberIn(const char* variable) {
  const char* const text = std::getenv(variable);
  if (text == nullptr) return -1;
  const std::string_view digits(text);
  int number = -1;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool is_whole = read.ec == std::errc{} && read.ptr == digits.data() + digits.size();
  return is_whole ? number : -1;
}

}  // namespace

// The protocol of systemd: sd_listen_fds(3).
std::vector<int> activatedSockets() {
  if (numberIn("LISTEN_PID") != ::getpid()) return {};
  std::vector<int> sockets;
  for (int i = 0; i < numberIn("LISTEN_FDS"); ++i) {
    const int descriptor = kFirstDescriptor + i;
    if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) break;  // it is not open
    sockets.push_back(descriptor);
  }
  return sockets;
}

bool startsServersOnDemand() {
  return false;
}

}  // namespace vorlatch::platform
