// What the daemon remembers of its targets between passes. Confined to the debounce queue; work for
// another queue carries snapshots, and sends what it learns back to the debounce queue.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "config/preferences.h"
#include "platform/queues.h"

namespace vorlatch {

// Each is keyed by the target key.
struct PassState {
  // The running watch timers.
  std::map<std::string, platform::Timer, std::less<>> targetTimers;
  // The targets taken charge of. This set alone decides which targets count as removed.
  std::set<std::string, std::less<>> knownTargets;
  // The settings that the pass last acted on.
  Targets lastAppliedConfigs;
  // The process ids last seen, 0 for a target that was not running. Also written by watch timers
  // and the patrol, and so it may hold targets that the pass does not know.
  std::map<std::string, std::int32_t, std::less<>> lastKnownPIDs;
};

// Empty until the first pass. On the debounce queue only.
PassState& passState();

// The process id in such a map; 0 when it has none.
std::int32_t pidIn(const std::map<std::string, std::int32_t, std::less<>>& pids,
                   const std::string& key);

}  // namespace vorlatch
