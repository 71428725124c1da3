// A target's settings as the user meets them: how each is typed in, shown, and found at fault.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"

namespace vorlatch::cli {

enum class SettingKind { Integer, Boolean, Text };

struct SettingRule {
  const char* key;
  SettingKind kind;
  std::int64_t lowest;  // of an integer
  std::int64_t highest;
  const char* meaning;
};

std::span<const SettingRule> settingRules();
const SettingRule* settingRule(std::string_view key);
std::vector<std::string> settingKeys();

// The value that the text stands for: an integer in range, for a band also its name; yes/no,
// on/off, true/false or 1/0; any UTF-8 text. A Failure says what would be right.
plist::Value parseSetting(const SettingRule& rule, std::string_view text);

// A stored value in one line: as it would be typed in, or its kind where that is not possible.
std::string settingText(const plist::Value& value);

struct Fault {
  const char* kind;  // "wrong-type" or "out-of-range"
  std::string message;
};

// What is wrong with a stored value, and what the daemon makes of it; nothing when it is sound.
std::optional<Fault> faultOf(const SettingRule& rule, const plist::Value& value);

// Likewise for a value that ought to be a boolean.
std::optional<Fault> booleanFaultOf(const plist::Value& value);

// The kind of value, for messages: "a text", "a list".
const char* kindText(const plist::Value& value);

}  // namespace vorlatch::cli
