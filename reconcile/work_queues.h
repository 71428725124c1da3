// The two serial queues on which all work after start-up runs.
#pragma once

#include "base/thread_safety.h"
#include "platform/queues.h"

namespace vorlatch {

// Names for thread-safety annotations: code that runs on the main thread or on one of the queues.
inline constexpr Confinement kMainThread;
inline constexpr Confinement kDebounceQueue;
inline constexpr Confinement kWorkerQueue;

// Creates both queues if they do not exist yet, the debounce queue first. Call it before sending
// work to either queue.
void makeWorkQueues() REQUIRES(kMainThread);

// Runs passes, watch timer ticks, patrol ticks and the debounce timer, so none of them overlap.
// Only this queue accesses the pass state.
platform::SerialQueue& debounceQueue();

// Runs restores and the patrol's sweep, which work on their own snapshots.
platform::SerialQueue& workerQueue();

}  // namespace vorlatch
