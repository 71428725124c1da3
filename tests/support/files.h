// Reads and writes files for tests.
#pragma once

#include <string>
#include <string_view>

namespace vorlatch::tests {

// Returns all bytes of a file, or an empty string if it cannot be read.
std::string readAll(const std::string& path);
// Overwrites the file in place. Fails the test if that is impossible.
void writeAll(const std::string& path, std::string_view bytes);
// Returns the permission bits of a file, or 0 if there is none.
unsigned modeOf(const std::string& path);

}  // namespace vorlatch::tests
