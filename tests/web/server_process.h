// The server in a process of its own, on a real socket.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/web/page_story.h"
#include "tests/web/raw_client.h"
#include "web/server.h"

namespace vorlatch::tests {

// Serves the page of the story until it is destroyed; fails the test if it ended before.
class ServerProcess {
 public:
  explicit ServerProcess(const web::Limits& limits = patient());
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess();

  // The limits of the program, but so many requests as tests need.
  static web::Limits patient();

  [[nodiscard]] RawClient connect() const { return RawClient(port_); }
  [[nodiscard]] std::uint16_t port() const { return port_; }
  // Returns everything that a connection gets for these bytes.
  [[nodiscard]] std::string answerTo(std::string_view bytes) const;
  // Waits until it ends by itself, and returns its exit status.
  int awaitEnd();
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  std::uint16_t port_ = 0;
  pid_t pid_ = -1;
};

}  // namespace vorlatch::tests
