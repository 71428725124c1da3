// The preferences file as the daemon reads it: its keys and the rules by which each is read. Every
// reader loads the file afresh; nothing of it is kept between runs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "base/plist_value.h"

namespace vorlatch {

inline constexpr const char* kPreferencesFileName = "com.zel.vorlatch.plist";
// Posted by whoever changed the file.
inline constexpr const char* kApplyNotificationName = "com.zel.vorlatch/ApplyLimits";

namespace keys {
inline constexpr const char* kEnabled = "Enabled";
inline constexpr const char* kAppConfigs = "AppConfigs";
inline constexpr const char* kLogSizeLimit = "LogSizeLimit";
inline constexpr const char* kCheckInterval = "CheckInterval";
inline constexpr const char* kJetsamPriority = "JetsamPriority";
inline constexpr const char* kMemLimitActive = "MemLimitActive";
inline constexpr const char* kMemLimitInactive = "MemLimitInactive";
inline constexpr const char* kNiceValue = "NiceValue";
inline constexpr const char* kStripManaged = "StripManaged";
inline constexpr const char* kRemark = "Remark";
}  // namespace keys

// How a target is to be held, as the daemon reads its dictionary: numbers and truth values of any
// stored type, within their ranges.
struct TargetSettings {
  std::int32_t jetsam_priority = 0;  // the band; -1: left alone, 0: given back to the system
  std::int32_t nice_value = 0;
  std::int32_t active_limit_mb = 0;  // below 1: the system's default
  std::int32_t inactive_limit_mb = 0;
  std::int32_t check_interval_s = 0;  // the period of the watch timer; 0 without one
  std::optional<bool> strips_managed =
      std::nullopt;  // out of the system's memory management; empty: not asked for

  friend bool operator==(const TargetSettings&, const TargetSettings&) = default;
};

TargetSettings targetSettings(const plist::Dictionary& dictionary);

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

// A number of a dictionary; 0 when missing. An empty string counts as missing, and reads as 0.
std::int32_t integerSetting(const plist::Dictionary& dictionary, const char* key);

inline constexpr std::int32_t kLowestNice = -20;
inline constexpr std::int32_t kHighestNice = 20;

}  // namespace vorlatch
