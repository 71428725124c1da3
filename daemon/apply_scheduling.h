// When a reconciliation pass runs.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// Asks for a pass 150 ms from now; asked again before that, the wait starts anew, so that a burst
// of requests gives one pass. Returns at once.
void applyMemoryLimits() REQUIRES(kMainThread);

}  // namespace vorlatch
