// A QR code of a short text, for a camera that looks at a terminal. Debian's libraries of QR codes
// are compiled for one machine each, so none of them can be linked into the device's programs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlatch::cli {

// Of texts of at most so many bytes there is a code.
inline constexpr std::size_t kQrTextBytesMax = 78;
// The width of the printed code in characters, with the quiet zone around it.
inline constexpr std::size_t kQrColumns = 41;

// Returns the code as lines of block characters, of which each shows two modules, one above the
// other. Dark modules are blanks, as a terminal is dark. Requires a text that is not too long.
std::string qrCode(std::string_view text);

}  // namespace vorlatch::cli
