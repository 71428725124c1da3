// The changes that a user may make to the preferences.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/plist_value.h"

namespace vorlatch::control {

// Changes the dictionary of a preferences file. A Failure when the file holds something else where
// a dictionary belongs, or names no such target or key.
using Change = std::function<void(plist::Dictionary&)>;

// Sets keys of a target, each given as KEY=VALUE, and adds the target when it is new. A Failure at
// once when a name or a value is wrong.
Change setSettings(const std::string& target, const std::vector<std::string>& assignments);
// Takes keys out of a target's settings, also such as the daemon does not know.
Change unsetSettings(const std::string& target, const std::vector<std::string>& keys);
Change removeTargets(const std::vector<std::string>& targets);
Change switchDaemon(bool on);
// Adds the default preset's targets; those that are configured keep their settings unless they are
// replaced.
Change addPreset(bool replaces_targets);

[[noreturn]] void failUnknownTarget(const std::vector<std::string>& known,
                                    const std::string& target);

// A place at which two dictionaries differ.
struct Difference {
  std::vector<std::string> path;
  const plist::Value* before;  // null: absent; both point into the dictionaries
  const plist::Value* after;
};

// The places in order of their keys; a dictionary that is new or gone counts by its entries.
std::vector<Difference> differencesBetween(const plist::Dictionary& before,
                                           const plist::Dictionary& after);

// Tells the daemon that the preferences changed. A Failure when that cannot be done.
void postApply();

}  // namespace vorlatch::control
