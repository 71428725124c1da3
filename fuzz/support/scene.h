// Inputs that are property lists which describe a scene: its parts, each where given.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"

namespace vorlatch::fuzz {

// The integer as the daemon reads it from a value of any type; `otherwise` where there is none.
std::int32_t integerIn(const plist::Dictionary& scene, std::string_view key,
                       std::int32_t otherwise);
// Whether the value counts as true for the daemon; false where there is none.
bool isTrueIn(const plist::Dictionary& scene, std::string_view key);
// The bytes of a text or of data, which may be no text at all; empty for anything else.
std::string textIn(const plist::Dictionary& scene, std::string_view key);
// Likewise of a value at hand.
std::string bytesOf(const plist::Value& value);
// The dictionaries in an array, which the scene keeps; what else is in it is passed over.
std::vector<const plist::Dictionary*> dictionariesIn(const plist::Dictionary& scene,
                                                     std::string_view key);
// What a file holds: the bytes as they are where they are given as data or text, the property list
// of any other value; nothing where the scene has no such file.
std::optional<std::string> fileIn(const plist::Dictionary& scene, std::string_view key,
                                  bool is_binary);

}  // namespace vorlatch::fuzz
