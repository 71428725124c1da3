// Platform interface for property lists: converts bytes to a value and back. The device uses
// CoreFoundation, Linux uses libplist; the types of neither library appear here.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch::platform {

// Returns the value of an XML or binary property list, or std::nullopt if the bytes do not parse.
// The caller has already bounded size, nesting and expansion (config/property_list_file.h does), so
// that no parser has to be trusted with it. XML that is not UTF-8 does not parse; a lone surrogate
// in a binary list becomes U+FFFD. With `only_key`, a dictionary at the root is reduced to that
// entry; no other entry is converted. Safe to call from any thread.
std::optional<plist::Value> parsePropertyList(std::string_view bytes,
                                              const char* only_key = nullptr);

// Returns the XML form of a value as a complete document, or an empty string if the platform cannot
// write the value. Integers stay integers. Safe to call from any thread.
std::string writeXmlPropertyList(const plist::Value& value);

// Like writeXmlPropertyList, in the binary format.
std::string writeBinaryPropertyList(const plist::Value& value);

}  // namespace vorlatch::platform
