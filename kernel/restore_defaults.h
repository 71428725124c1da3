// Restores the system's defaults for one process.
#pragma once

#include <cstdint>
#include <string>

namespace vorlatch {

// Removes the target's status entry. Unless `pid` is 0, also restores the default of every
// setting, in the order of kReturnInOrder. Ignores the kernel's results, because the process may
// have exited. Runs on the worker queue.
void restoreDefaultsForProcess(const std::string& key, std::int32_t pid);

}  // namespace vorlatch
