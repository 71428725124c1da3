// Keeps a slip of the user's from harming the phone.
#pragma once

#include <string>
#include <vector>

#include "control/check.h"
#include "control/observation.h"

namespace vorlatch::control {

// Throws a Failure with kWrongUsage, the reason and the figure if an edit sets a memory limit that
// would end a process soon, that is above the device's memory, or that concerns a process which the
// phone cannot do without. Looks only at limits that `after` has and `before` had not.
void refuseHarm(const plist::Dictionary& before, const plist::Dictionary& after);

// Throws a Failure with a hint if no process can have this name: blanks at its ends, typographic
// quotes, no UTF-8.
void refuseImpossibleTarget(const std::string& target);

// Returns what `check` would find, with the likely cause: no running process and no installed app
// has this name or bundle identifier; another target of the preferences is the same process.
std::vector<Finding> warningsOnTarget(const std::string& target,
                                      const plist::Dictionary& preferences);

}  // namespace vorlatch::control
