#include "control/local_time_text.h"

#include <array>
#include <ctime>

namespace vorlatch::control {
namespace {

std::string formatted(std::int64_t seconds, const char* format) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&time, &local);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

}  // namespace

std::string isoTime(std::int64_t seconds) {
  std::string text = formatted(seconds, "%Y-%m-%dT%H:%M:%S%z");
  // strftime writes +0800.
  return text.insert(text.size() - 2, ":");
}

std::string readableTime(std::int64_t seconds) {
  return formatted(seconds, "%Y-%m-%d %H:%M:%S");
}

}  // namespace vorlatch::control
