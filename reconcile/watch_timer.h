// The timer of a target that has a check interval: between passes it sees the target's process
// start and exit, and applies the settings again at every tick while it runs.
#pragma once

#include <string>

#include "config/preferences.h"
#include "platform/queues.h"

namespace vorlatch {

// Starts a timer of the settings' check interval, which is above 0; its first tick comes one
// interval from now. It keeps these settings: an edit makes the pass replace it. Its ticks run on
// the debounce queue.
platform::Timer startWatchTimer(const std::string& key, const TargetSettings& settings);

}  // namespace vorlatch
