// UTF-8, as strictly as the device's strings take it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorlatch {

// Whether the text is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
// A NUL is a character like any other.
bool isValidUtf8(std::string_view text);

// Appends the character; false, and nothing appended, when the code point is a surrogate or above
// U+10FFFF.
bool appendUtf8(std::string& text, std::uint32_t code_point);

// UTF-8 of UTF-16: how long it is, and itself. A surrogate without its other half becomes U+FFFD.
std::size_t utf8Length(std::u16string_view units);
void appendUtf8(std::string& text, std::u16string_view units);

}  // namespace vorlatch
