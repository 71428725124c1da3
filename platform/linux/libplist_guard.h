// What libplist 2.2.0 reads badly, found before it sees the bytes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlatch::platform {

// Returns the bytes to give to the library: those given, or a copy in `mended` in which U+FFFD
// stands for a lone surrogate and "?" for a byte above 127 in an ASCII text, because the library
// drops the former and takes the latter for UTF-8. Empty for XML with so many entities that the
// library, which moves the rest of a text at each, would take minutes, and for a binary list whose
// objects overlap so that it cannot be mended. Takes linear time.
std::optional<std::string_view> easyForLibplist(std::string_view bytes, std::string& mended);

}  // namespace vorlatch::platform
