// Formats bytes for the trace.
#pragma once

#include <string>

namespace vorlatch::simulated {

// The bytes in hexadecimal, in groups of four: "{01000000 ffffffff}".
std::string hexGroups(const std::string& bytes);

}  // namespace vorlatch::simulated
