// Handing one process back to the system.
#pragma once

#include <cstdint>
#include <string>

namespace vorlatch {

// Removes the target's status entry; unless pid is 0, also gives the process nice value 0, the
// default memory limits, the system's management and the idle band. What the kernel answers is not
// looked at: the process may be gone, and then there is nothing to hand back. Runs on the worker
// queue.
void restoreDefaultsForProcess(const std::string& key, std::int32_t pid);

}  // namespace vorlatch
