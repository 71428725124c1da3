// Schedules reconciliation passes.
#pragma once

#include "reconcile/work_queues.h"

namespace vorlatch {

// Requests a pass in 150 ms. Another request before then restarts the wait, so that a burst of
// requests causes one pass. Returns at once.
void applyMemoryLimits() REQUIRES(kMainThread);

}  // namespace vorlatch
