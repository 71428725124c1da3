// How a stored object is read, a second time: as a number, and as a truth value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch::tests {

// The number under a key; 0 when there is none. Beyond the range it is the range's end.
std::int64_t longIn(const plist::Dictionary& dictionary, std::string_view key);
std::int32_t intIn(const plist::Dictionary& dictionary, std::string_view key);
bool isTrue(const plist::Value& value);

bool isUtf8(std::string_view bytes);

}  // namespace vorlatch::tests
