// How a target's settings are typed in, shown, and found at fault, all by the table of their keys.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/target_settings.h"

namespace vorlatch::control {

std::vector<std::string> settingKeyNames();

// The names that a band may be typed in by.
std::vector<std::string> bandNames();

// The value that the text stands for: an integer in range, for a band also its name; yes/no,
// on/off, true/false or 1/0; any UTF-8 text. A Failure says what would be right.
plist::Value parseSetting(const SettingKey& row, std::string_view text);

// A stored value in one line: as it would be typed in, or its kind where that is not possible.
std::string settingText(const plist::Value& value);

struct Fault {
  const char* kind;  // "wrong-type" or "out-of-range"
  std::string message;
};

// What is wrong with a stored value, and what the daemon makes of it; nothing when it is sound.
std::optional<Fault> faultOf(const SettingKey& row, const plist::Value& value);

// Likewise for a value that ought to be a boolean.
std::optional<Fault> booleanFaultOf(const plist::Value& value);

// The kind of value, for messages: "a text", "a list".
const char* kindText(const plist::Value& value);

}  // namespace vorlatch::control
