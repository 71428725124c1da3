// How a trace shows a call.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/model/jetsam_model.h"

namespace vorlatch::simulated {

// A buffer's bytes; empty for a null one.
std::string bytesOf(const void* buffer, std::size_t length);

// The bytes in groups of four, as a trace shows them: "{01000000 ffffffff}".
std::string hexGroups(const std::string& bytes);

// The bytes that a call left in its buffer: as many as its result counts, and at least 32 where the
// buffer has them.
std::string leftIn(const void* buffer, std::size_t length, int result);

// "setpriority(0, 100, -5) = 0", "memorystatus_control(18, 100, 0, {00000000}, 4) = -1 errno 1". A
// buffer of up to 32 bytes stands between the arguments in four-byte groups, the bytes that a call
// left in it after the result; a longer one is shown by its length.
std::string callText(std::string_view function, std::string_view arguments,
                     const std::string& before, const std::string& after,
                     const model::CallResult& answer);

}  // namespace vorlatch::simulated
