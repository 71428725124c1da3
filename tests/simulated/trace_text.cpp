#include "tests/simulated/trace_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace vorlatch::simulated {
namespace {

constexpr std::size_t kLongestShown = 32;

}  // namespace

std::string hexGroups(const std::string& bytes) {
  std::string text = "{";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", static_cast<std::uint8_t>(bytes[i]));
    text += digits;
  }
  return text + "}";
}

std::string bytesOf(const void* buffer, std::size_t length) {
  if (buffer == nullptr || length > kLongestShown) return {};
  return {static_cast<const char*>(buffer), length};
}

std::string leftIn(const void* buffer, std::size_t length, int result) {
  if (buffer == nullptr) return {};
  const std::size_t counted = result > 0 ? static_cast<std::size_t>(result) : 0;
  return {static_cast<const char*>(buffer), std::min(length, std::max(counted, kLongestShown))};
}

std::string callText(std::string_view function, std::string_view arguments,
                     const std::string& before, const std::string& after,
                     const model::CallResult& answer) {
  std::string text = std::string(function) + '(';
  // A lone '&' in the arguments marks the buffer's position.
  const std::size_t at = arguments.find('&');
  text += arguments.substr(0, at);
  if (at != arguments.npos) {
    text.append(before.empty() ? std::string("buffer") : hexGroups(before));
    text += arguments.substr(at + 1);
  }
  text += ") = " + std::to_string(answer.result);
  if (answer.error != 0) text.append(" errno ").append(std::to_string(answer.error));
  if (after != before) text.append(" ").append(hexGroups(after));
  return text;
}

}  // namespace vorlatch::simulated
