// Reads inputs that are property lists describing a scene. All parts of a scene are optional.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch::fuzz {

// The integer as the daemon reads it from a value of any type; `otherwise` if the key is missing.
std::int32_t integerIn(const plist::Dictionary& scene, std::string_view key,
                       std::int32_t otherwise);
// Whether the daemon reads the value as true; false if the key is missing.
bool isTrueIn(const plist::Dictionary& scene, std::string_view key);
// The bytes of a string or data, which need not be valid text; empty for any other value.
std::string textIn(const plist::Dictionary& scene, std::string_view key);
// The bytes of a string or data; empty for any other value.
std::string bytesOf(const plist::Value& value);
// Empty for any other value.
plist::Array arrayIn(const plist::Dictionary& scene, std::string_view key);
// The dictionary at the root of a property list, reduced to `only_key` if that is given.
std::optional<plist::Dictionary> dictionaryIn(std::string_view bytes,
                                              const char* only_key = nullptr);
// The contents of a file: the bytes of a string or data, or any other value as a property list.
// std::nullopt if the scene does not contain the file.
std::optional<std::string> fileIn(const plist::Dictionary& scene, std::string_view key,
                                  bool is_binary);
// The bytes of a property list.
std::string writtenAs(const plist::Value& value, bool is_binary);

}  // namespace vorlatch::fuzz
