// What Linux alone does: property lists that libplist reads otherwise than CoreFoundation, and the
// time zone of the log's stamps.
#include "platform/property_list.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "platform/local_time.h"
#include "tests/base/binary_builder.h"
#include "tests/base/describe.h"

namespace vorlatch::platform {
namespace {

using namespace std::string_literals;
using test::parsed;

TEST(LibplistLimit, ReadsNoEntitiesThatWouldHang) {
  std::string text;
  for (int i = 0; i < 1'000'000; ++i) text += "&amp;";
  EXPECT_EQ(parsed("<plist><string>" + text + "</string></plist>"), "does not parse");
  EXPECT_EQ(parsed("<plist><string>" + text.substr(0, 50'000) + "</string></plist>"),
            "string " + std::string(10'000, '&'));
}

TEST(LibplistLimit, ReadsBinaryTextsItsOwnWay) {
  // A byte above ASCII in an ASCII text becomes a question mark, and a text ends at its NUL.
  EXPECT_EQ(parsed(test::BinaryBuilder{.objects = {"\x53"s + "a\xE9z"}}.build()), "string a?z");
  EXPECT_EQ(parsed(test::BinaryBuilder{.objects = {"\x53"s + "a\0z"s}}.build()), "string a");
  // Of equal keys the last holds.
  test::BinaryBuilder list;
  list.objects = {list.dictionary({1, 1, 1}, {2, 3, 2}), "\x51k", "\x08"s, "\x09"s};
  EXPECT_EQ(parsed(list.build()), "{k=false;}");
}

std::string stampOf(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%m-%d %H:%M:%S", &utc);
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
    do {  // again when the second changed on the way
      before = std::time(nullptr);
      stamp = localTimeStamp();
    } while (before != std::time(nullptr));
    EXPECT_EQ(stamp, stampOf(before + offset)) << zone;
  }
}

}  // namespace
}  // namespace vorlatch::platform
