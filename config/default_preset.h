// The preferences of a fresh installation.
#pragma once

#include "base/plist_value.h"

namespace vorlatch {

// Returns the preset: switched on, with seven targets.
plist::Dictionary defaultPreset();

// Writes the preset, with mode 0666, if there is no preferences file. Never examines an existing
// file, even if it is empty or does not parse. Ignores a failed write: the daemon then runs
// switched off. Called once, at start, on the main thread.
void checkAndGenerateDefaultConfig();

}  // namespace vorlatch
