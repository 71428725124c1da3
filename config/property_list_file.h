// Property lists in files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch {

// The value that the file holds; nothing when it is missing, unreadable, not a property list, or
// one beyond the bounds of size and nesting. Safe to call from any thread.
std::optional<plist::Value> readPropertyList(const std::string& path,
                                             const char* only_key = nullptr);

// Likewise for the bytes of such a file.
std::optional<plist::Value> propertyListIn(std::string_view bytes, const char* only_key = nullptr);

// Likewise for a list whose root is a dictionary; empty otherwise. With `only_key`, that entry
// alone.
plist::Dictionary readDictionary(const std::string& path, const char* only_key = nullptr);

// Writes the value as XML, whole or not at all; false when that failed.
bool writePropertyList(const std::string& path, const plist::Value& value);

}  // namespace vorlatch
