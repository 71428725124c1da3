#include "config/property_list_guard.h"

#include <pthread.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/platform/binary_builder.h"

namespace {

using namespace std::string_literals;
using vorlatch::isBoundedPropertyList;
using vorlatch::kMaxPropertyListBytes;
using vorlatch::kMaxPropertyListDepth;
using vorlatch::test::BinaryBuilder;

constexpr std::size_t kMegabyte = std::size_t{1024} * 1024;

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

std::string nestedXml(const std::string& open, const std::string& inside, const std::string& close,
                      std::size_t levels) {
  return "<plist version=\"1.0\">" + repeated(open, levels) + inside + repeated(close, levels) +
         "</plist>";
}

// Arrays of one member, each holding the next; the last one is empty.
std::string nestedBinary(std::size_t levels) {
  BinaryBuilder list{.objects = {}, .reference_size = 4};
  for (std::size_t i = 1; i < levels; ++i) list.objects.push_back(list.array({i}));
  list.objects.push_back(list.array({}));
  return list.build();
}

// Arrays that each refer to the next one `fan_out` times; the last refers to the object.
std::string sharedBinary(std::size_t levels, std::size_t fan_out, const std::string& object) {
  BinaryBuilder list;
  for (std::uint64_t i = 1; i <= levels; ++i) {
    list.objects.push_back(list.array(std::vector<std::uint64_t>(fan_out, i)));
  }
  list.objects.push_back(object);
  return list.build();
}

TEST(PropertyListGuard, OrdinaryListsPass) {
  EXPECT_TRUE(isBoundedPropertyList("<plist><dict><key>a</key><array/></dict></plist>"));
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), "\x09"};
  EXPECT_TRUE(isBoundedPropertyList(list.build()));
}

TEST(PropertyListGuard, XmlNestsUpToTheLimit) {
  EXPECT_TRUE(isBoundedPropertyList(
      nestedXml("<array>", "<string>a</string>", "</array>", kMaxPropertyListDepth)));
  EXPECT_FALSE(isBoundedPropertyList(
      nestedXml("<array>", "<string>a</string>", "</array>", kMaxPropertyListDepth + 1)));
  const std::string bare = repeated("<dict>", kMaxPropertyListDepth);
  EXPECT_TRUE(isBoundedPropertyList(bare));
  EXPECT_FALSE(isBoundedPropertyList(bare + "<dict>"));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<plist>", 1'000'000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<unknown>", 1'000'000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<dict a=\"b\">", 1'000'000)));
}

TEST(PropertyListGuard, SiblingsAreNotLevels) {
  EXPECT_TRUE(
      isBoundedPropertyList("<array>" + repeated("<dict></dict><array/>", 10'000) + "</array>"));
  EXPECT_TRUE(isBoundedPropertyList("<array>" + repeated("<dict />", 10'000) + "</array>"));
}

TEST(PropertyListGuard, WhatOnlyLooksLikeATagDoesNotCount) {
  EXPECT_TRUE(isBoundedPropertyList("<array><!--" + repeated("<array>", 1000) + "--></array>"));
  EXPECT_TRUE(
      isBoundedPropertyList("<string><![CDATA[" + repeated("<array>", 1000) + "]]></string>"));
  EXPECT_TRUE(isBoundedPropertyList("<?note " + repeated("<array>", 1000) + "?><array/>"));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<array><!--</array>-->", 1000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<array><![CDATA[</array>]]>", 1000)));
}

TEST(PropertyListGuard, XmlThatParsersCouldTakeDifferentlyIsRefused) {
  EXPECT_FALSE(isBoundedPropertyList("<plist a=\"</dict>\"><true/></plist>"));
  EXPECT_FALSE(isBoundedPropertyList("<plist a='>'><true/></plist>"));
  EXPECT_FALSE(isBoundedPropertyList("<!DOCTYPE plist [ ]><true/>"));
  EXPECT_FALSE(isBoundedPropertyList("<?xml encoding=\"UTF-7\"?><true/>"));
  EXPECT_FALSE(isBoundedPropertyList("<\0t\0r\0u\0e\0/\0>\0"s));
  EXPECT_FALSE(isBoundedPropertyList("<!-- <true/>"));
}

TEST(PropertyListGuard, BinaryNestsUpToTheLimit) {
  EXPECT_TRUE(isBoundedPropertyList(nestedBinary(kMaxPropertyListDepth)));
  EXPECT_FALSE(isBoundedPropertyList(nestedBinary(kMaxPropertyListDepth + 1)));
  EXPECT_FALSE(isBoundedPropertyList(nestedBinary(1'000'000)));
}

TEST(PropertyListGuard, ABinaryListThatHoldsItselfIsRefused) {
  BinaryBuilder list;
  list.objects = {list.array({0})};
  EXPECT_FALSE(isBoundedPropertyList(list.build()));
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), list.array({1, 0})};
  EXPECT_FALSE(isBoundedPropertyList(list.build()));
}

TEST(PropertyListGuard, SharedObjectsCountAsOftenAsTheyAreReferredTo) {
  EXPECT_TRUE(isBoundedPropertyList(sharedBinary(3, 14, "\x09")));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(30, 14, "\x09")));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(500, 2, "\xA0")));
  // Fourteen times fourteen times a megabyte.
  const std::string large = BinaryBuilder::ascii(std::string(kMegabyte, 'a'));
  EXPECT_TRUE(isBoundedPropertyList(sharedBinary(1, 14, large)));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(2, 14, large)));
}

TEST(PropertyListGuard, TheExpansionStopsExactlyAtTheLimit) {
  // An array and its 127 references to a string of a megabyte, less what objects count beside it.
  const auto list = [](std::size_t last) {
    BinaryBuilder builder;
    std::vector<std::uint64_t> members(127, 1);
    members.push_back(2);
    builder.objects = {builder.array(members), BinaryBuilder::ascii(std::string(kMegabyte, 'a')),
                       BinaryBuilder::ascii(std::string(last, 'b'))};
    return builder.build();
  };
  constexpr std::size_t kLeft = kMegabyte - std::size_t{129} * 8;
  EXPECT_TRUE(isBoundedPropertyList(list(kLeft)));
  EXPECT_FALSE(isBoundedPropertyList(list(kLeft + 1)));
}

TEST(PropertyListGuard, LargerThanTheLimitIsRefused) {
  std::string xml = "<string/>";
  xml.resize(kMaxPropertyListBytes, ' ');
  EXPECT_TRUE(isBoundedPropertyList(xml));
  xml += ' ';
  EXPECT_FALSE(isBoundedPropertyList(xml));
}

TEST(PropertyListGuard, MalformedBinaryListsAreRefusedAndReadInBounds) {
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), "\x09"};
  const std::string good = list.build();
  ASSERT_TRUE(isBoundedPropertyList(good));
  for (std::size_t size = 0; size < good.size(); ++size) {
    if (size < 6) continue;  // too short to claim to be binary
    EXPECT_FALSE(isBoundedPropertyList(std::string(good, 0, size))) << size;
  }
  for (std::size_t at = good.size() - 26; at < good.size(); ++at) {
    std::string changed = good;
    changed[at] = '\xFF';
    EXPECT_FALSE(isBoundedPropertyList(changed)) << at;
  }
  EXPECT_FALSE(isBoundedPropertyList("bplist1" + good.substr(7)));
}

// What the guard lets through must fit the stack of a queue's thread.
// Sanitizers put room around every variable.
#ifdef VORLATCH_SANITIZED
constexpr std::size_t kSmallStackBytes = 8 * kMegabyte;
#else
constexpr std::size_t kSmallStackBytes = kMegabyte / 2;
#endif

TEST(PropertyListGuard, TheDeepestListIsParsedAndLetGoOfOnASmallStack) {
  const auto parse_and_write = [](void* bytes) -> void* {
    auto value = vorlatch::platform::parsePropertyList(*static_cast<std::string*>(bytes));
    const auto copy = value;
    const bool equal = value && copy == value;
    if (value) value->storage() = false;
    return equal && !vorlatch::platform::writeXmlPropertyList(*copy).empty() ? bytes : nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kSmallStackBytes);
  std::string xml = nestedXml("<dict><key>a</key>", "<true/>", "</dict>", kMaxPropertyListDepth);
  std::string binary = nestedBinary(kMaxPropertyListDepth);
  for (std::string* bytes : {&xml, &binary}) {
    ASSERT_TRUE(isBoundedPropertyList(*bytes));
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, parse_and_write, bytes), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, bytes);
  }
  pthread_attr_destroy(&attributes);
}

TEST(PropertyListGuard, TextListsNestUpToTheLimit) {
  const std::string open = repeated("(", kMaxPropertyListDepth);
  EXPECT_TRUE(isBoundedPropertyList(open + repeated(")", kMaxPropertyListDepth)));
  EXPECT_FALSE(isBoundedPropertyList(open + "("));
  EXPECT_FALSE(isBoundedPropertyList(repeated("{a=", 1'000'000)));
  EXPECT_TRUE(isBoundedPropertyList("(" + repeated("(a), {b = c;}, ", 10'000) + ")"));
  EXPECT_TRUE(isBoundedPropertyList("{ data = (" + repeated("<0fbd77>, ", 10'000) + "); }"));
}

TEST(PropertyListGuard, BracketsInTextsAndCommentsDoNotNest) {
  const std::string flood = repeated("(", 1'000'000);
  EXPECT_TRUE(isBoundedPropertyList("( \"" + flood + "\", '" + flood + "' )"));
  EXPECT_TRUE(isBoundedPropertyList("// " + flood + "\n ( /* " + flood + " */ )"));
  EXPECT_TRUE(isBoundedPropertyList("( \"\\\"" + flood + "\" )"));
}

TEST(PropertyListGuard, NoTextHidesBracketsThatAParserSees) {
  const std::string flood = repeated("(", 1'000'000);
  EXPECT_FALSE(isBoundedPropertyList("(a//b\"c\"," + flood));
  EXPECT_FALSE(isBoundedPropertyList("(\"a\"" + flood));
  EXPECT_FALSE(isBoundedPropertyList("(\"a\\\\\"" + flood));
  EXPECT_FALSE(isBoundedPropertyList("// a\r" + flood));
  EXPECT_FALSE(isBoundedPropertyList("/*/ a */" + flood));
  EXPECT_FALSE(isBoundedPropertyList("(" + repeated(")", 1000) + flood));
  EXPECT_FALSE(isBoundedPropertyList("\xFF\xFE(\0(\0"s));
  EXPECT_FALSE(isBoundedPropertyList("\xE2\x80\xA8 <plist>" + repeated("<array>", 1'000'000)));
}

}  // namespace
