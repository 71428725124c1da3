// The watch timer of a target with a check interval. Between passes it detects when the target's
// process starts or exits, and at every tick it applies the settings again while the process runs.
#pragma once

#include <string>

#include "config/preferences.h"
#include "platform/queues.h"

namespace vorlatch {

// Starts a timer with the settings' check interval, which must be above 0. The first tick comes
// after one interval; all ticks run on the debounce queue. The timer keeps a copy of the settings:
// after an edit, the pass replaces the timer.
platform::Timer startWatchTimer(const std::string& key, const TargetSettings& settings);

}  // namespace vorlatch
