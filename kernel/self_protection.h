// Raises the daemon's own priority.
#pragma once

namespace vorlatch {

// Sets the daemon's nice value to -20, raises its jetsam band as far as the kernel allows, and logs
// the start-up banner with the outcome. A refusal is only logged. Called once, at start, on the
// main thread.
void protect_daemon_itself();

}  // namespace vorlatch
