// What libplist reads otherwise than CoreFoundation.
#include "platform/property_list.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/base/binary_builder.h"
#include "tests/base/describe.h"

namespace vorlatch::platform {
namespace {

using namespace std::string_literals;
using plist::Value;

std::string parsed(const std::string& bytes) {
  const std::optional<Value> value = parsePropertyList(bytes);
  return value ? test::describe(*value) : "does not parse";
}

TEST(LibplistLimit, SoManyEntitiesThatItWouldHangDoNotParse) {
  std::string text;
  for (int i = 0; i < 1'000'000; ++i) text += "&amp;";
  EXPECT_EQ(parsed("<plist><string>" + text + "</string></plist>"), "does not parse");
  EXPECT_EQ(parsed("<plist><string>" + text.substr(0, 50'000) + "</string></plist>"),
            "string " + std::string(10'000, '&'));
}

TEST(LibplistLimit, AByteAboveAsciiInAnAsciiTextBecomesAQuestionMark) {
  EXPECT_EQ(parsed(test::BinaryBuilder{.objects = {"\x53"s + "a\xE9z"}}.build()), "string a?z");
}

TEST(LibplistLimit, OfEqualKeysInABinaryListTheLastHolds) {
  test::BinaryBuilder list;
  list.objects = {list.dictionary({1, 1, 1}, {2, 3, 2}), "\x51k", "\x08"s, "\x09"s};
  EXPECT_EQ(parsed(list.build()), "{k=false;}");
}

TEST(LibplistLimit, ATextInABinaryListEndsAtItsNul) {
  EXPECT_EQ(parsed(test::BinaryBuilder{.objects = {"\x53"s + "a\0z"s}}.build()), "string a");
}

}  // namespace
}  // namespace vorlatch::platform
