// Reads and writes property list files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch {

// Returns the value in the file. Returns std::nullopt if the file is missing, unreadable, not a
// property list, or beyond the limits of size and nesting. With `only_key`, a dictionary is reduced
// to that entry. Safe to call from any thread.
std::optional<plist::Value> readPropertyList(const std::string& path,
                                             const char* only_key = nullptr);

// Like readPropertyList, for the bytes of such a file.
std::optional<plist::Value> propertyListIn(std::string_view bytes, const char* only_key = nullptr);

// Like readPropertyList, but returns an empty dictionary if the file does not hold one.
plist::Dictionary readDictionary(const std::string& path, const char* only_key = nullptr);

// Writes the value as XML, replacing the file atomically. Returns false on failure.
bool writePropertyList(const std::string& path, const plist::Value& value);

}  // namespace vorlatch
