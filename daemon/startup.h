// The daemon from its first step to the run loop.
#pragma once

namespace vorlatch {

// Starts up and serves until the process is killed. No step's failure stops it. Returns 0 where the
// platform's run loop returns. On the main thread, once.
int runDaemon();

}  // namespace vorlatch
