// Concatenates values as a stream prints them.
#pragma once

#include <sstream>
#include <string>

namespace vorlatch::tests {

template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream stream;
  (stream << ... << parts);
  return stream.str();
}

}  // namespace vorlatch::tests
