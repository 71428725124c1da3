// Runs the daemon: start-up, then the run loop.
#pragma once

namespace vorlatch {

// Starts up and serves until the process is killed. A failed step does not stop it. Returns 0 if
// the platform's run loop returns. Call it once, on the main thread.
int runDaemon();

}  // namespace vorlatch
