// What the daemon remembers of its targets between passes. Confined to the debounce queue; work for
// another queue carries snapshots, and sends what it learns back to the debounce queue.
#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/queues.h"
#include "proc/process_lookup.h"
#include "reconcile/work_queues.h"

namespace vorlatch {

// Each is keyed by the target key.
struct PassState {
  // The running watch timers.
  std::map<std::string, platform::Timer> targetTimers GUARDED_BY(kDebounceQueue);
  // The targets taken charge of. This set alone decides which targets count as removed.
  std::set<std::string> knownTargets GUARDED_BY(kDebounceQueue);
  // The stored form of the settings that the pass last acted on.
  std::unordered_map<std::string, std::string> lastAppliedConfigs GUARDED_BY(kDebounceQueue);
  // The process ids last seen, 0 for a target that was not running. Also written by watch timers
  // and the patrol, and so it may hold targets that the pass does not know.
  PIDMap lastKnownPIDs GUARDED_BY(kDebounceQueue);
};

// Empty until the first pass.
PassState& passState();

}  // namespace vorlatch
