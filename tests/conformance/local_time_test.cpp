#include "platform/local_time.h"

#include <cctype>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(LocalTime, TheStampHasMonthDayHourMinuteAndSecond) {
  const std::string stamp = vorlatch::platform::localTimeStamp();
  std::string shape = stamp;
  for (char& c : shape) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0) c = '0';
  }
  ASSERT_EQ(shape, "00-00 00:00:00");
  const auto field = [&](std::size_t at) { return std::stoi(stamp.substr(at, 2)); };
  EXPECT_TRUE(field(0) >= 1 && field(0) <= 12) << stamp;
  EXPECT_TRUE(field(3) >= 1 && field(3) <= 31) << stamp;
  EXPECT_LE(field(6), 23) << stamp;
  EXPECT_LE(field(9), 59) << stamp;
  EXPECT_LE(field(12), 60) << stamp;
}

}  // namespace
