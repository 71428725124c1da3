// vorlatchweb: serves the page on this machine. Takes the sockets that the service manager listens
// on, or binds 127.0.0.1 at the port that is its argument. With port 0, prints the one that it got.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string_view>

#include "control/access_key.h"
#include "control/failure.h"
#include "platform/listening_socket.h"
#include "web/loopback.h"
#include "web/page_files.h"
#include "web/server.h"

namespace vorlatch::web {
namespace {

constexpr std::chrono::seconds kIdle{60};

// Returns std::nullopt unless the arguments are a port or none.
std::optional<std::uint16_t> portIn(int argc, char** argv) {
  if (argc < 2) return control::kPagePort;
  const std::string_view text = argv[1];
  std::uint16_t port = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), port);
  const bool is_port = argc == 2 && read.ec == std::errc{} && read.ptr == text.data() + text.size();
  return is_port ? std::optional(port) : std::nullopt;
}

int complain(const std::string& message, int status) {
  std::fprintf(stderr, "vorlatchweb: %s\n", message.c_str());
  return status;
}

// The page shows how to make a key if there is none.
void makeKey() {
  try {
    static_cast<void>(control::accessKey());
  } catch (const control::Failure& failure) {
    complain(failure.message, failure.status);
  }
}

int serve(const std::vector<int>& sockets, const Limits& limits) {
  for (const int socket : sockets) {
    if (!loopbackPort(socket)) {
      return complain("it serves only sockets that listen on 127.0.0.1", control::kWrongUsage);
    }
  }
  const Routes routes(pageFiles());
  Server(sockets, routes, limits).run();
  return control::kDone;
}

int serveAt(std::uint16_t port) {
  makeKey();
  const int socket = listenOnThisMachine(port);
  if (socket < 0) {
    return complain("port " + std::to_string(port) + ": " + control::reasonOf(errno),
                    control::kCouldNot);
  }
  if (port == 0) {
    std::printf("%d\n", int{*loopbackPort(socket)});
    std::fflush(stdout);
  }
  return serve({socket}, {});
}

int run(int argc, char** argv) {
  const std::vector<int> activated = platform::activatedSockets();
  if (!activated.empty()) {
    makeKey();
    return serve(activated, {.idle = kIdle});
  }
  const std::optional<std::uint16_t> port = portIn(argc, argv);
  if (!port) return complain("it takes a port, from 0 to 65535", control::kWrongUsage);
  return serveAt(*port);
}

}  // namespace
}  // namespace vorlatch::web

int main(int argc, char** argv) {
  // Writing to a page that has gone must not end the server.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return vorlatch::web::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vorlatchweb: %s\n", error.what());
    return vorlatch::control::kCouldNot;
  }
}
