// A target's settings: the typed values that the daemon uses, and the table that says how each is
// stored, read and entered.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "base/plist_value.h"
#include "base/translatable.h"
#include "platform/jetsam_bands.h"

namespace vorlatch {

namespace keys {
inline constexpr const char* kCheckInterval = "CheckInterval";
inline constexpr const char* kJetsamPriority = "JetsamPriority";
inline constexpr const char* kMemLimitActive = "MemLimitActive";
inline constexpr const char* kMemLimitInactive = "MemLimitInactive";
inline constexpr const char* kNiceValue = "NiceValue";
inline constexpr const char* kStripManaged = "StripManaged";
inline constexpr const char* kRemark = "Remark";
// Not a setting. vorlatchctl apply --again counts it up, so that the daemon sees an edit and
// applies the target anew.
inline constexpr const char* kApplyAgain = "ApplyAgain";
}  // namespace keys

inline constexpr std::int32_t kLowestNice = -20;
inline constexpr std::int32_t kHighestNice = 20;

// The settings at which a target is held. A member's initial value applies if its key is missing.
struct TargetSettings {
  std::int32_t check_interval_s = 0;  // period of the watch timer; 0: no timer
  std::int32_t jetsam_priority = 0;   // the band; -1: not changed, 0: returned to the system
  std::int32_t active_limit_mb = 0;   // below 1: the system's default
  std::int32_t inactive_limit_mb = 0;
  std::int32_t nice_value = 0;
  // Whether the process is taken out of the system's memory management; empty: not changed.
  std::optional<bool> strips_managed = std::nullopt;

  friend bool operator==(const TargetSettings&, const TargetSettings&) = default;
};

// One key of a target's dictionary.
struct SettingKey {
  enum class Kind { Integer, Boolean, Text };
  enum class Unit { None, Seconds, Megabytes };
  static constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

  const char* key;
  const char* meaning;
  Kind kind;
  // For an integer: the range of meaningful numbers, and whether the daemon clamps other numbers to
  // it. If it does not, they go to the kernel unchanged.
  std::int32_t lowest = 0;
  std::int32_t highest = 0;
  bool is_clamped = false;
  Unit unit = Unit::None;  // of an integer; users may type another: 5m, 1G
  // Tells people what happens to a number outside the range; null if that depends on the number.
  const char* outside = nullptr;
  // The member that holds the value; null for a key that the daemon does not read.
  std::int32_t TargetSettings::*integer = nullptr;
  std::optional<bool> TargetSettings::*boolean = nullptr;
  // The name of that value in vorlatchctl's JSON.
  const char* json = nullptr;
};

inline constexpr auto kSettingKeys = std::to_array<SettingKey>({
    {.key = keys::kCheckInterval,
     .meaning =
         english("seconds between looks of the target's own timer; 0: none, the patrol looks every "
                 "1800 s"),
     .kind = SettingKey::Kind::Integer,
     .lowest = 0,
     .highest = SettingKey::kMost,
     .is_clamped = true,
     .unit = SettingKey::Unit::Seconds,
     .outside = english("it counts as none"),
     .integer = &TargetSettings::check_interval_s,
     .json = "interval_s"},
    {.key = keys::kJetsamPriority,
     .meaning =
         english("jetsam band to hold the process at; -1: left alone, 0: the system's default"),
     .kind = SettingKey::Kind::Integer,
     .lowest = -1,
     .highest = platform::kHighestBandSinceIOS16,
     .integer = &TargetSettings::jetsam_priority,
     .json = "band"},
    {.key = keys::kMemLimitActive,
     .meaning = english("memory limit in MB while active; 0: the system's default"),
     .kind = SettingKey::Kind::Integer,
     .lowest = -1,
     .highest = SettingKey::kMost,
     .unit = SettingKey::Unit::Megabytes,
     .outside = english("the kernel takes it for the system's default"),
     .integer = &TargetSettings::active_limit_mb,
     .json = "active_limit_mb"},
    {.key = keys::kMemLimitInactive,
     .meaning = english("memory limit in MB while inactive; 0: the system's default"),
     .kind = SettingKey::Kind::Integer,
     .lowest = -1,
     .highest = SettingKey::kMost,
     .unit = SettingKey::Unit::Megabytes,
     .outside = english("the kernel takes it for the system's default"),
     .integer = &TargetSettings::inactive_limit_mb,
     .json = "inactive_limit_mb"},
    {.key = keys::kNiceValue,
     .meaning = english("nice value to hold the process at"),
     .kind = SettingKey::Kind::Integer,
     .lowest = kLowestNice,
     .highest = kHighestNice,
     .is_clamped = true,
     .integer = &TargetSettings::nice_value,
     .json = "nice"},
    {.key = keys::kStripManaged,
     .meaning = english("whether to take the process out of the system's memory management"),
     .kind = SettingKey::Kind::Boolean,
     .boolean = &TargetSettings::strips_managed,
     .json = "strip_managed"},
    {.key = keys::kRemark,
     .meaning = english("a note for yourself; the daemon never reads it"),
     .kind = SettingKey::Kind::Text},
});

// Returns the key's row of the table, or null if there is none.
const SettingKey* findSettingKey(std::string_view key);

// Reads the settings from a stored dictionary. Accepts any stored type as a number or truth value,
// and clamps as the table says.
TargetSettings readTargetSettings(const plist::Dictionary& dictionary);

}  // namespace vorlatch
