// The preferences file as the daemon reads it: its keys and the rules by which each is read. Every
// reader loads the file afresh; nothing of it is kept between runs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/plist_value.h"

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

// One target's dictionary, whole: keys that the daemon does not know count as an edit, too.
using TargetSettings = plist::Dictionary;
// By target key: an app's bundle identifier or a process name.
using Targets = std::map<std::string, TargetSettings, std::less<>>;

// The file's dictionary; empty, and so switched off, when it is missing or does not parse.
plist::Dictionary loadPreferences();

// The master switch; off when missing.
bool isEnabled(const plist::Dictionary& preferences);

// The targets; an entry whose value is not a dictionary is passed over.
Targets appConfigs(plist::Dictionary preferences);

// The size in bytes above which the log is emptied; nothing when the cap is off.
std::optional<std::int64_t> logSizeLimit(const plist::Dictionary& preferences);

// The period of the target's watch timer in seconds; 0 when it has none.
std::int32_t checkInterval(const TargetSettings& settings);

// A number of the target's; 0 when missing. An empty string counts as missing, and reads as 0.
std::int32_t integerSetting(const TargetSettings& settings, const char* key);

// The nice value to hold the target at; 0 when missing.
inline constexpr std::int32_t kLowestNice = -20;
inline constexpr std::int32_t kHighestNice = 20;
std::int32_t niceValue(const TargetSettings& settings);

// Whether the target is to be taken out of the system's memory management; nothing when missing.
std::optional<bool> stripManaged(const TargetSettings& settings);

}  // namespace vorlatch
