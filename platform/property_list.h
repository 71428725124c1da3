// The seam for property lists: bytes to value and back. CoreFoundation's on the device, libplist's
// on Linux; neither library's types pass through here.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch::platform {

// The value that the bytes of an XML or binary property list stand for; nothing when they do not
// parse. The caller has bounded size, nesting and expansion beforehand (config/property_list_file.h
// does), so that no parser has to be trusted with that. XML that is not UTF-8 does not parse; a
// lone surrogate in a binary list becomes U+FFFD. With `only_key`, a dictionary at the root is
// given with that entry alone, which takes the memory of no other. Safe to call from any thread.
std::optional<plist::Value> parsePropertyList(std::string_view bytes,
                                              const char* only_key = nullptr);

// The XML form of a value, ready to be written to a file; empty when the platform cannot write it.
// Integers are written as integers. Safe to call from any thread.
std::string writeXmlPropertyList(const plist::Value& value);

// Likewise the binary form.
std::string writeBinaryPropertyList(const plist::Value& value);

}  // namespace vorlatch::platform
