// Pushing one target's settings into the kernel.
#pragma once

#include <cstdint>
#include <string>

#include "config/preferences.h"

namespace vorlatch {

// Applies the target's memory limits, nice value, jetsam band and managed state, in this order,
// reads each back where the kernel allows it, logs every outcome, and records in the status file
// what the process has in the end. No failure stops a later step. Nothing at all with pid 0. Safe
// to call from any queue.
void applyLimitsForApp(const std::string& target, const TargetSettings& settings, std::int32_t pid);

}  // namespace vorlatch
