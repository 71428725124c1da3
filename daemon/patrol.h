// The patrol: every 1800 seconds it applies the settings of the targets without a watch timer
// again.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// Starts the patrol, once; its first tick comes 1800 s from now. It is never stopped: each tick
// reads the preferences and does nothing when they are switched off.
void setupGlobal1800sTimer() REQUIRES(kMainThread);

// One tick: reads the preferences afresh and hands the sweep over the targets to the worker queue.
void patrolTick() REQUIRES(kDebounceQueue);

}  // namespace vorlatch
