// What a story writes into the preferences, in the form in which the rules look at it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/plist_value.h"

namespace vorlatch::faults {

struct Settings {
  std::int32_t active_mb = 0;
  std::int32_t inactive_mb = 0;
  std::int32_t nice = 0;
  std::int32_t band = 0;
  std::optional<bool> strip = std::nullopt;
  std::int32_t interval_s = 0;
  friend bool operator==(const Settings&, const Settings&) = default;
};

struct Preferences {
  bool is_enabled = true;
  std::int64_t log_limit_bytes = 2097152;
  std::map<std::string, Settings> targets = {};
};

plist::Dictionary dictionaryOf(const Preferences& preferences);

// What the daemon writes where there are none.
Preferences presetPreferences();

}  // namespace vorlatch::faults
