// Clients that send raw bytes to a server on this machine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/descriptor.h"

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

// The first line of an answer without the version: "200 OK".
std::string statusOf(const std::string& answer);
std::string bodyOf(const std::string& answer);

}  // namespace vorlatch::tests
