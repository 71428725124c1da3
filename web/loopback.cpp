#include "web/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "base/descriptor.h"

namespace vorlatch::web {
namespace {

constexpr std::uint32_t kLoopbackNet = 127;
constexpr unsigned kHostBits = 24;

sockaddr* generic(sockaddr_in& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

}  // namespace

int listenOnThisMachine(std::uint16_t port) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
  if (!socket.isOpen()) return -1;
  // Without it, the port would be taken for a minute after the last server.
  const int yes = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(socket.get(), generic(address), sizeof address) != 0) return -1;
  if (::listen(socket.get(), SOMAXCONN) != 0) return -1;
  const int listening = socket.get();
  socket.release();
  return listening;
}

std::optional<std::uint16_t> loopbackPort(int listening) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(listening, generic(address), &size) != 0) return std::nullopt;
  const bool is_loopback =
      address.sin_family == AF_INET && ntohl(address.sin_addr.s_addr) >> kHostBits == kLoopbackNet;
  if (!is_loopback) return std::nullopt;
  return ntohs(address.sin_port);
}

}  // namespace vorlatch::web
