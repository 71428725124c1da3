// The daemon's own place in the system.
#pragma once

namespace vorlatch {

// Raises the daemon's nice value to the highest and its jetsam band as far as the kernel lets it,
// and logs the start-up banner with the outcome. A refusal is logged and changes nothing else.
// Called once, at start, on the main thread.
void protect_daemon_itself();

}  // namespace vorlatch
