// A server in a process of its own on a real socket, and clients that send it raw bytes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "tests/web/page_story.h"
#include "web/server.h"

namespace vorlatch::tests {

// Longer than anything takes, on a busy machine and with sanitizers.
inline constexpr int kPatienceMs = 60'000;

// A connection to the server.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port);

  // Returns false if the server has ended the connection.
  bool send(std::string_view bytes) const;
  // Ends the sending side.
  void finish() const;
  // Returns what was received until the server ended the connection. Fails the test if it does not
  // end.
  std::string readAll();
  // Returns what was received so far as soon as it contains the text, or at the end.
  std::string readUntil(std::string_view text);
  // Returns the answer to a request: its head and its body.
  std::string readAnswer();

 private:
  // Returns false at the end of the connection.
  bool receive();

  Descriptor socket_;
  std::string received_;
};

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

// The first line of an answer without the version: "200 OK".
std::string statusOf(const std::string& answer);
std::string bodyOf(const std::string& answer);

}  // namespace vorlatch::tests
