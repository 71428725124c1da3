// The restore work that a pass hands to the worker queue.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch {

// A target to hand back, with the process id last known for it: 0 when it was not running. The id
// is not looked up again, so a process that restarted meanwhile is addressed by its old one.
struct RestoreTarget {
  std::string key;
  std::int32_t pid;
};

// Hands back each target in turn on the worker queue; of one that was not running only the status
// entry is removed. Returns at once.
void restoreTargets(std::vector<RestoreTarget> targets);

}  // namespace vorlatch
