// Parses, prints and checks a target's settings, based on the table of their keys.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/target_settings.h"

namespace vorlatch::control {

std::vector<std::string> settingKeyNames();

// Returns the names that users may type for a band.
std::vector<std::string> bandNames();

// Parses a typed value: an integer in range, also with a unit (512MB, 1G, 30s, 5m), or, for a band,
// its name; yes/no, on/off, true/false or 1/0 in any case; any UTF-8 text. Takes full-width digits
// and letters, too. Throws a Failure that says what is allowed.
plist::Value parseSetting(const SettingKey& row, std::string_view text);

// Splits KEY=VALUE at the first equals sign, which may be a full-width one. Throws a Failure if
// there is none or the key is empty.
struct Assignment {
  std::string key;
  std::string value;
};
Assignment splitAssignment(std::string_view text);

// Returns a stored value in one line: as a user would type it, or a summary ("3 items").
std::string settingText(const plist::Value& value);

struct Fault {
  const char* code;  // "wrong-type" or "out-of-range"
  std::string message;
};

// Returns what is wrong with a stored value and how the daemon reads it; empty if valid.
std::optional<Fault> faultOf(const SettingKey& row, const plist::Value& value);

// Does the same for a value that must be a boolean.
std::optional<Fault> booleanFaultOf(const plist::Value& value);

// Returns the kind of value for messages: "a text", "a list".
const char* kindText(const plist::Value& value);

}  // namespace vorlatch::control
