// The reconciliation pass: what is configured, against what was applied before and what runs now.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// One pass. Applies the settings of targets that are new, changed, or have another process than
// last seen; restores those that left the preferences, or all of them when switched off; keeps the
// watch timers in step. An unchanged target costs a comparison: no kernel call and no line in the
// log.
void executeMemoryLimits() REQUIRES(kDebounceQueue);

}  // namespace vorlatch
