// The two serial queues on which all work after start-up runs.
#pragma once

#include "base/thread_safety.h"
#include "platform/queues.h"

namespace vorlatch {

// What runs on the main thread, and on each of the two queues.
inline constexpr Confinement kMainThread;
inline constexpr Confinement kDebounceQueue;
inline constexpr Confinement kWorkerQueue;

// Makes both queues when they do not exist yet, the debounce queue first. Called before anything is
// sent to them.
void makeWorkQueues() REQUIRES(kMainThread);

// Passes, watch timer ticks, patrol ticks and the debounce timer run here, so none of them overlaps
// another; the pass state is confined to it.
platform::SerialQueue& debounceQueue();

// Restores and the patrol's sweep run here, on snapshots of their own.
platform::SerialQueue& workerQueue();

}  // namespace vorlatch
