// The oracle's own conversion of stored values to numbers and truth values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/plist_value.h"

namespace vorlatch::tests {

// The number under a key, clamped to the result's range; 0 if there is none.
std::int64_t longIn(const plist::Dictionary& dictionary, std::string_view key);
std::int32_t intIn(const plist::Dictionary& dictionary, std::string_view key);
bool isTrue(const plist::Value& value);

bool isUtf8(std::string_view bytes);

}  // namespace vorlatch::tests
