// The patrol applies the settings of all targets without a watch timer again every 1800 seconds.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// Starts the patrol. Call it once. The first tick comes after 1800 s. The patrol is never stopped:
// each tick reads the preferences and does nothing if the daemon is switched off.
void setupGlobal1800sTimer() REQUIRES(kMainThread);

// Handles one tick: reads the preferences and sends a sweep over the targets to the worker queue.
void patrolTick() REQUIRES(kDebounceQueue);

}  // namespace vorlatch
