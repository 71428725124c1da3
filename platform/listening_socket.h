// Platform interface for sockets that the system listens on for a server, which it starts at the
// first connection.
#pragma once

#include <vector>

namespace vorlatch::platform {

// Returns the descriptors of the sockets that this process was started with; empty if it was
// started in another way. The caller closes them. Call once.
std::vector<int> activatedSockets();

// Returns true if the system starts the server when it is needed, so that no user starts it.
bool startsServersOnDemand();

}  // namespace vorlatch::platform
