// What the daemon remembers about its targets between passes. Only the debounce queue accesses it:
// work on another queue carries a snapshot and sends its results back to the debounce queue.
#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/queues.h"
#include "proc/process_lookup.h"
#include "reconcile/work_queues.h"

namespace vorlatch {

// All members are keyed by the target key.
struct PassState {
  // The running watch timers.
  std::map<std::string, platform::Timer> targetTimers GUARDED_BY(kDebounceQueue);
  // The targets that the pass has acted on. Only a target in this set can count as removed.
  std::set<std::string> knownTargets GUARDED_BY(kDebounceQueue);
  // The settings that the pass last acted on, in their stored form.
  std::unordered_map<std::string, std::string> lastAppliedConfigs GUARDED_BY(kDebounceQueue);
  // The process id last seen; 0 for a target that was not running. Watch timers and the patrol
  // write it too, so it may contain targets that are not in knownTargets.
  PIDMap lastKnownPIDs GUARDED_BY(kDebounceQueue);
};

// The daemon's only instance; empty until the first pass.
PassState& passState();

}  // namespace vorlatch
