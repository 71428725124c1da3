// Finds processes and apps by what a person calls them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "control/observation.h"

namespace vorlatch::control {

// From the likeliest to the least likely; the daemon follows the first three only.
enum class NameRule : std::uint8_t {
  NameAndBundleIdentifier,
  Name,
  BundleIdentifier,
  SameInAnotherCase,  // name, bundle identifier or display name, ignoring case
  Part,               // of the name or the bundle identifier, ignoring case
  PartOfDisplayName,
};

struct FoundName {
  std::int32_t pid;               // 0: an installed app that does not run
  std::string name;               // of the process
  std::string bundle_identifier;  // empty: none
  std::string display_name;       // in which the text was found; otherwise empty
  NameRule rule;

  // Returns true if the daemon would find the process by this text as a target.
  [[nodiscard]] bool isExact() const { return rule <= NameRule::BundleIdentifier; }
};

struct NameSearch {
  std::vector<FoundName> found;  // the likeliest first
  // Every name and bundle identifier that was compared.
  std::vector<std::string> known;
};

// Compares the text with the running processes and the installed apps.
NameSearch searchNames(const Observation& observation, const std::string& text);

// Returns the rule's code for programs.
const char* codeOf(NameRule rule);

}  // namespace vorlatch::control
