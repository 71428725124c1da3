// The preferences file as the daemon reads it: its keys and the rules by which each is read. Every
// reader loads the file afresh; nothing of it is kept between runs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "base/plist_value.h"
#include "config/target_settings.h"

namespace vorlatch {

inline constexpr const char* kPreferencesFileName = "com.zel.vorlatch.plist";
// Posted by whoever changed the file.
inline constexpr const char* kApplyNotificationName = "com.zel.vorlatch/ApplyLimits";

namespace keys {
inline constexpr const char* kEnabled = "Enabled";
inline constexpr const char* kAppConfigs = "AppConfigs";
inline constexpr const char* kLogSizeLimit = "LogSizeLimit";
}  // namespace keys

// One entry of AppConfigs.
struct ConfiguredTarget {
  TargetSettings settings;
  // The comparison form of the whole dictionary: keys that the daemon does not know count as an
  // edit.
  std::string stored_form;
};

// By target key: an app's bundle identifier or a process name.
using Targets = std::map<std::string, ConfiguredTarget, std::less<>>;
using TargetDictionaries = std::map<std::string, plist::Dictionary, std::less<>>;

// The file's dictionary; empty, and so switched off, when it is missing or does not parse.
plist::Dictionary loadPreferences();

// The master switch; off when missing.
bool isEnabled(const plist::Dictionary& preferences);

// The targets' dictionaries; an entry of another type is passed over.
TargetDictionaries appConfigs(plist::Dictionary preferences);

// The targets as the daemon reads them. Takes the preferences over, and frees each dictionary as
// soon as it is read.
Targets configuredTargets(plist::Dictionary preferences);

// The size in bytes above which the log is emptied; nothing when the cap is off.
std::optional<std::int64_t> logSizeLimit(const plist::Dictionary& preferences);

}  // namespace vorlatch
