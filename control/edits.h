// The changes that a user may make to the preferences.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/plist_value.h"

namespace vorlatch::control {

// Changes the dictionary of a preferences file. Throws a Failure if a value that must be a
// dictionary has another type, or if a target or key does not exist.
using Change = std::function<void(plist::Dictionary&)>;

// Returns a change that sets keys of a target, each given as KEY=VALUE, and adds the target if it
// is new, with its band left alone unless given. Throws a Failure immediately if a name or value is
// invalid.
Change setSettings(const std::string& target, const std::vector<std::string>& assignments);
// Returns a change that removes keys from a target's settings, also unknown ones.
Change unsetSettings(const std::string& target, const std::vector<std::string>& keys);
Change removeTargets(const std::vector<std::string>& targets);
Change switchDaemon(bool on);
// Returns a change that adds the default preset's targets. A target that is already configured
// keeps its settings unless `replaces_targets`.
Change addPreset(bool replaces_targets);
// Returns a change that makes the daemon apply the targets anew: it counts up keys::kApplyAgain.
Change applyAgain(const std::vector<std::string>& targets);

[[noreturn]] void failUnknownTarget(const std::vector<std::string>& known,
                                    const std::string& target);

// One difference between two dictionaries.
struct Difference {
  std::vector<std::string> path;
  const plist::Value* before;  // null: absent; both point into the two dictionaries
  const plist::Value* after;
};

// Returns the differences; at each level changed and removed keys come first, then added keys. An
// added or removed dictionary is listed by its entries.
std::vector<Difference> differencesBetween(const plist::Dictionary& before,
                                           const plist::Dictionary& after);

// Tells the daemon that the preferences changed. Throws a Failure if that is not possible.
void postApply();

}  // namespace vorlatch::control
