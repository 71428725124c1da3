// Formats a call for the trace.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/model/jetsam_model.h"

namespace vorlatch::simulated {

// The bytes of a buffer, or an empty string for null.
std::string bytesOf(const void* buffer, std::size_t length);

// The bytes in hexadecimal, in groups of four: "{01000000 ffffffff}".
std::string hexGroups(const std::string& bytes);

// The bytes that a call left in its buffer: as many as its result counts, but at least 32 if the
// buffer is that long.
std::string leftIn(const void* buffer, std::size_t length, int result);

// Examples: "setpriority(0, 100, -5) = 0", "memorystatus_control(18, 100, 0, {00000000}, 4) = -1
// errno 1". A buffer of up to 32 bytes is shown in hexadecimal between the arguments, and the bytes
// that the call left in it behind the result. A longer buffer is shown by its length.
std::string callText(std::string_view function, std::string_view arguments,
                     const std::string& before, const std::string& after,
                     const model::CallResult& answer);

}  // namespace vorlatch::simulated
