// Named sets of targets, each in a file beside the preferences: com.zel.vorlatch.profile.NAME.plist
// has one key, AppConfigs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "control/edits.h"

namespace vorlatch::control {

struct Profile {
  std::string name;
  std::string file;
  std::optional<std::size_t> targets;  // how many; empty if the file cannot be read
  bool is_in_use = false;              // whether the preferences have exactly these targets
};

// Returns every profile, sorted by name.
std::vector<Profile> profiles();
std::vector<std::string> profileNames();

// Saves the targets of the preferences, and returns how many there are. Throws a Failure if the
// name is invalid, or if the profile exists and `replaces` is false.
std::size_t saveProfile(const std::string& name, bool replaces, bool writes);

// Returns a change that replaces all targets with those of the profile. Throws a Failure
// immediately if there is no such profile or it cannot be read.
Change useProfile(const std::string& name);

// Throws a Failure if there is no such profile.
void removeProfile(const std::string& name, bool writes);

}  // namespace vorlatch::control
