// Files as tests read and write them.
#pragma once

#include <string>
#include <string_view>

namespace vorlatch::tests {

// All bytes of a file; none when it cannot be read.
std::string readAll(const std::string& path);
// In place. Fails the test when it cannot be written.
void writeAll(const std::string& path, std::string_view bytes);
// The permission bits of a file, 0 when there is none.
unsigned modeOf(const std::string& path);

}  // namespace vorlatch::tests
