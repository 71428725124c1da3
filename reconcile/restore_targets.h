// Sends restores from a pass to the worker queue.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch {

// A target to restore, with its last known process id; 0 if it was not running. The id is not
// looked up again: if the process restarted since, the restore still uses the old id.
struct RestoreTarget {
  std::string key;
  std::int32_t pid;
};

// Restores the targets in order on the worker queue. For a target with pid 0, only removes the
// status entry. Returns at once.
void restoreTargets(std::vector<RestoreTarget> targets);

}  // namespace vorlatch
