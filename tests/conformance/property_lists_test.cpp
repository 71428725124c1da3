#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/property_list.h"

namespace {

using namespace std::string_literals;
using vorlatch::platform::parsePropertyList;
using vorlatch::platform::writeXmlPropertyList;
using vorlatch::plist::Array;
using vorlatch::plist::Data;
using vorlatch::plist::Date;
using vorlatch::plist::Dictionary;
using vorlatch::plist::Value;

// Equality takes 1, 1.0 and true for one number: what comes back must be of the same type too.
void expectToComeBack(const Value& value) {
  const std::optional<Value> read = parsePropertyList(writeXmlPropertyList(value));
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, value);
  EXPECT_EQ(read->storage().index(), value.storage().index());
}

TEST(PropertyLists, EveryTypeComesBackAsItWasWritten) {
  expectToComeBack(true);
  expectToComeBack(false);
  expectToComeBack(0);
  expectToComeBack(-20);
  expectToComeBack(1.0);
  expectToComeBack(0.1);
  expectToComeBack("");
  expectToComeBack("成功 <&> \xF0\x9F\x98\x80");
  expectToComeBack(Date{86400});
  expectToComeBack(Data{"\x00\xFF"s});
  expectToComeBack(Data{});
  expectToComeBack(Array{});
  expectToComeBack(Array{1, "two", Array{3.5}});
  expectToComeBack(Dictionary{});
  expectToComeBack(Dictionary{{"AppConfigs", Dictionary{{"com.a.b", Dictionary{{"Nice", -5}}}}}});
}

TEST(PropertyLists, NumbersAtTheirLimitsComeBack) {
  expectToComeBack(std::numeric_limits<std::int64_t>::min());
  expectToComeBack(std::numeric_limits<std::int64_t>::max());
  expectToComeBack(std::numeric_limits<std::uint64_t>::max());
  expectToComeBack(std::nan(""));
  expectToComeBack(std::numeric_limits<double>::infinity());
  expectToComeBack(-std::numeric_limits<double>::infinity());
  expectToComeBack(std::numeric_limits<double>::max());
}

TEST(PropertyLists, ABinaryListIsRead) {
  const std::string binary =
      "bplist00\xD1\x01\x02\x57"
      "Enabled\x09\x08\x0B\x13"
      "\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x14"s;
  EXPECT_EQ(parsePropertyList(binary), Value(Dictionary{{"Enabled", true}}));
}

TEST(PropertyLists, WhatIsNotAPropertyListDoesNotParse) {
  for (const std::string& bytes :
       {""s, "text"s, "<plist><dict>"s, "<plist></plist>"s, "<plist><string>\xFF</string></plist>"s,
        "bplist00"s, "bplist00\x09"s}) {
    EXPECT_EQ(parsePropertyList(bytes), std::nullopt) << bytes;
  }
}

TEST(PropertyLists, StringsThatAreNotUtf8AreNotWritten) {
  EXPECT_EQ(writeXmlPropertyList(Array{"\xC0\x80"}), "");
}

}  // namespace
