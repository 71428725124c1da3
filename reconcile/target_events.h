// Handles the start or exit of a target's process, for the pass and the watch timers.
#pragma once

#include <cstdint>
#include <string>

#include "config/preferences.h"
#include "reconcile/work_queues.h"

namespace vorlatch {

// Logs the start and applies the settings; if `pid` is 0, logs the exit and removes the status
// entry.
void handleChangedPID(const std::string& key, const TargetSettings& settings, std::int32_t pid)
    REQUIRES(kDebounceQueue);

}  // namespace vorlatch
