// UTF-8 validation and conversion, as strict as the device's own strings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorlatch {

// Returns true if the text is well-formed UTF-8: no overlong forms, no surrogates, nothing above
// U+10FFFF. NUL is an ordinary character.
bool isValidUtf8(std::string_view text);

// Appends the character. Returns false, and appends nothing, if the code point is a surrogate or
// above U+10FFFF.
bool appendUtf8(std::string& text, std::uint32_t code_point);

// Convert UTF-16: utf8Length counts the bytes, appendUtf8 appends them. U+FFFD replaces a lone
// surrogate.
std::size_t utf8Length(std::u16string_view units);
void appendUtf8(std::string& text, std::u16string_view units);

}  // namespace vorlatch
