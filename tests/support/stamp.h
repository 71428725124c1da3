// The time stamp at the beginning of every log line: "[MM-dd HH:mm:ss] ".
#pragma once

#include <cstddef>
#include <string_view>

namespace vorlatch {

inline constexpr std::size_t kStampLength = 17;

// Whether a line begins with a stamp, including brackets and the space behind it.
inline bool isStamped(std::string_view line) {
  constexpr std::string_view kForm = "[00-00 00:00:00] ";
  static_assert(kForm.size() == kStampLength);
  if (line.size() < kForm.size()) return false;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool is_digit = line[i] >= '0' && line[i] <= '9';
    if (kForm[i] == '0' ? !is_digit : line[i] != kForm[i]) return false;
  }
  return true;
}

}  // namespace vorlatch
