#include "tests/web/raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include <gtest/gtest.h>

namespace vorlatch::tests {

RawClient::RawClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0)
      << errno;
}

bool RawClient::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void RawClient::finish() const {
  ::shutdown(socket_.get(), SHUT_WR);
}

bool RawClient::receive() {
  pollfd readable{.fd = socket_.get(), .events = POLLIN, .revents = 0};
  if (::poll(&readable, 1, kPatienceMs) != 1) {
    ADD_FAILURE() << "the server neither answers nor ends the connection";
    return false;
  }
  std::array<char, 65536> bytes{};
  const ssize_t got = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
  if (got <= 0) return false;
  received_.append(bytes.data(), static_cast<std::size_t>(got));
  return true;
}

std::string RawClient::readAll() {
  while (receive()) {
  }
  return std::exchange(received_, {});
}

std::string RawClient::readUntil(std::string_view text) {
  while (received_.find(text) == std::string::npos && receive()) {
  }
  return std::exchange(received_, {});
}

std::string RawClient::readAnswer() {
  constexpr std::string_view kEnd = "\r\n\r\n";
  constexpr std::string_view kLength = "Content-Length: ";
  while (received_.find(kEnd) == std::string::npos) {
    if (!receive()) return std::exchange(received_, {});
  }
  const std::size_t head = received_.find(kEnd) + kEnd.size();
  const std::size_t length = received_.find(kLength);
  std::size_t body = 0;
  if (length < head) body = std::stoul(received_.substr(length + kLength.size()));
  while (received_.size() < head + body && receive()) {
  }
  std::string answer = received_.substr(0, head + body);
  received_.erase(0, answer.size());
  return answer;
}

std::string statusOf(const std::string& answer) {
  constexpr std::string_view kVersion = "HTTP/1.1 ";
  if (!answer.starts_with(kVersion)) return answer;
  return answer.substr(kVersion.size(), answer.find('\r') - kVersion.size());
}

std::string bodyOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == answer.npos ? "" : answer.substr(end + 4);
}

}  // namespace vorlatch::tests
