// The preferences file as the daemon reads it: its keys and the rule for reading each of them.
// Every reader loads the file again; nothing is cached between runs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "base/plist_value.h"
#include "config/target_settings.h"

namespace vorlatch {

inline constexpr const char* kPreferencesFileName = "com.zel.vorlatch.plist";
// A program posts this notification after it has changed the file.
inline constexpr const char* kApplyNotificationName = "com.zel.vorlatch/ApplyLimits";

namespace keys {
inline constexpr const char* kEnabled = "Enabled";
inline constexpr const char* kAppConfigs = "AppConfigs";
inline constexpr const char* kLogSizeLimit = "LogSizeLimit";
}  // namespace keys

// One entry of AppConfigs.
struct ConfiguredTarget {
  TargetSettings settings;
  // The comparison form of the whole dictionary. It includes keys that the daemon does not know, so
  // that changing them counts as an edit.
  std::string stored_form;
};

// Keyed by target: an app's bundle identifier or a process name.
using Targets = std::map<std::string, ConfiguredTarget, std::less<>>;
using TargetDictionaries = std::map<std::string, plist::Dictionary, std::less<>>;

// Returns the file's dictionary; empty, and so switched off, if it is missing or does not parse.
plist::Dictionary loadPreferences();

// Returns the master switch; false if it is missing.
bool isEnabled(const plist::Dictionary& preferences);

// Returns the targets' dictionaries. Skips an entry of another type.
TargetDictionaries appConfigs(plist::Dictionary preferences);

// Returns the targets as the daemon reads them. Consumes the preferences, and frees each dictionary
// as soon as it is read.
Targets configuredTargets(plist::Dictionary preferences);

// Returns the size in bytes above which the log is emptied, or std::nullopt if it has no limit.
std::optional<std::int64_t> logSizeLimit(const plist::Dictionary& preferences);

}  // namespace vorlatch
