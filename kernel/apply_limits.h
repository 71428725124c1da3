// Applies one target's settings to a process in the kernel.
#pragma once

#include <cstdint>
#include <string>

#include "config/preferences.h"

namespace vorlatch {

// Applies every setting of the target, in the order of kHoldInOrder. Reads each value back if the
// kernel allows it, logs every outcome, and writes the final values to the status file. A failed
// step does not stop later steps. Does nothing if `pid` is 0. Safe to call from any queue.
void applyLimitsForApp(const std::string& target, const TargetSettings& settings, std::int32_t pid);

}  // namespace vorlatch
