#include "platform/local_time.h"

#include <array>
#include <ctime>

#include "base/thread_safety.h"

namespace vorlatch::platform {

std::string localTimeStamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  {
    // localtime_r, unlike localtime, does not look up the time zone again. The C library has its
    // own lock for this, but the thread sanitizer cannot see it.
    static Mutex& time_zone = *new Mutex;
    const Lock lock(time_zone);
    tzset();
    localtime_r(&now, &local);
  }
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%m-%d %H:%M:%S", &local);
  return {text.data(), length};
}

}  // namespace vorlatch::platform
