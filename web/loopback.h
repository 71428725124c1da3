// Sockets that only programs of this machine can reach.
#pragma once

#include <cstdint>
#include <optional>

namespace vorlatch::web {

// Returns a socket that listens on 127.0.0.1 at the port, or at any free one if it is 0. Returns
// -1 with errno if that is impossible. The caller closes it.
int listenOnThisMachine(std::uint16_t port);

// Returns the port of a socket with an address in 127.0.0.0/8; std::nullopt for any other socket,
// which other machines might reach.
std::optional<std::uint16_t> loopbackPort(int listening);

}  // namespace vorlatch::web
