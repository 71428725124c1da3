#include "platform/local_time.h"

#include <array>
#include <ctime>

namespace vorlatch::platform {

std::string localTimeStamp() {
  // localtime_r, unlike localtime, does not look at the time zone anew by itself.
  tzset();
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%m-%d %H:%M:%S", &local);
  return {text.data(), length};
}

}  // namespace vorlatch::platform
