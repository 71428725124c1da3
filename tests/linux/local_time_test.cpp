#include "platform/local_time.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace vorlatch::platform {
namespace {

std::string stampOf(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%02d-%02d %02d:%02d:%02d", utc.tm_mon + 1, utc.tm_mday,
                utc.tm_hour, utc.tm_min, utc.tm_sec);
  return text.data();
}

TEST(LocalTimeStamp, FollowsTheTimeZoneEachTime) {
  constexpr std::time_t kHour = 3600;
  // The sign of TZ is that of the way back to UTC.
  for (const auto& [zone, offset] : {std::pair("UTC0", 0 * kHour), std::pair("CST-8", 8 * kHour),
                                     std::pair("XST11", -11 * kHour)}) {
    setenv("TZ", zone, 1);
    std::string stamp;
    std::time_t before = 0;
    std::time_t after = 0;
    do {  // again when the second changed on the way
      before = std::time(nullptr);
      stamp = localTimeStamp();
      after = std::time(nullptr);
    } while (before != after);
    EXPECT_EQ(stamp, stampOf(before + offset)) << zone;
  }
}

}  // namespace
}  // namespace vorlatch::platform
