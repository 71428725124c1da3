// Compares the preferences with what was applied before and with the running processes.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// Runs one pass. Applies the settings of targets that are new, changed, or run as another process
// than last seen. Restores targets that left the preferences, or all targets if the daemon is
// switched off. Starts and stops watch timers to match. An unchanged target costs one comparison:
// no kernel call and no log line.
void executeMemoryLimits() REQUIRES(kDebounceQueue);

}  // namespace vorlatch
