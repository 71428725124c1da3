// The preferences that a fresh installation starts with.
#pragma once

#include "base/plist_value.h"

namespace vorlatch {

// The preset: switched on, with seven targets.
plist::Dictionary defaultPreset();

// Writes the preset, mode 0666, when there is no preferences file. A file that exists is never
// examined, even if it is empty or does not parse. A failed write goes unnoticed: the daemon then
// runs switched off. Called once, at start, on the main thread.
void checkAndGenerateDefaultConfig();

}  // namespace vorlatch
