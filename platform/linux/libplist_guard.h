// Checks and repairs, before libplist 2.2.0 sees the bytes, what it would read wrongly or slowly.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlatch::platform {

// Returns the bytes to give to libplist: the given ones, or a repaired copy in `mended`. The copy
// has U+FFFD for a lone surrogate, which libplist would drop, and "?" for a byte above 127 in an
// ASCII string, which libplist would take for UTF-8. Returns std::nullopt for malformed XML, for
// XML whose entities would take libplist minutes (it moves the rest of a text at each), and for a
// binary list whose objects overlap so that it cannot be repaired. Takes linear time.
std::optional<std::string_view> easyForLibplist(std::string_view bytes, std::string& mended);

}  // namespace vorlatch::platform
