#include "config/property_list_guard.h"

#include <pthread.h>

#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

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

TEST(PropertyListGuard, ScalarsAreNoLevels) {
  for (const std::string scalar :
       {"key", "string", "integer", "real", "date", "data", "true", "false"}) {
    const std::string inside = "<" + scalar + "></" + scalar + ">";
    EXPECT_TRUE(
        isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxPropertyListDepth)))
        << scalar;
  }
}

TEST(PropertyListGuard, OnlyTheOutermostPlistElementIsNoLevel) {
  const std::string inside = "<plist></plist>";
  EXPECT_TRUE(
      isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxPropertyListDepth - 1)));
  EXPECT_FALSE(
      isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxPropertyListDepth)));
}

TEST(PropertyListGuard, TheTopLevelIsCountedLikeAnyOther) {
  const std::string xml = repeated("<dict>", kMaxPropertyListDepth);
  EXPECT_TRUE(isBoundedPropertyList(repeated("<dict></dict>", 1000) + xml));
  EXPECT_FALSE(isBoundedPropertyList("<dict></dict></dict>" + xml + "<dict>"));
  for (const auto& [open, close] : {std::pair("(", ")"), std::pair("{", "}")}) {
    const std::string text = repeated(open, kMaxPropertyListDepth);
    EXPECT_TRUE(isBoundedPropertyList(repeated(open + std::string(close), 1000) + text));
    EXPECT_FALSE(isBoundedPropertyList(close + text + open));
  }
}

// The smallest dictionary with a key and a value.
std::string dictionaryOf(const std::string& key, const std::string& value) {
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), key, value};
  return list.build();
}

TEST(PropertyListGuard, ABinaryDictionarysKeysAreTexts) {
  for (const std::string& no_text : {"\x09"s, "\x10\x05"s, "\xA0"s, "\xD0"s, "\x41x"s}) {
    EXPECT_FALSE(isBoundedPropertyList(dictionaryOf(no_text, "\x09"))) << no_text;
  }
  EXPECT_TRUE(isBoundedPropertyList(dictionaryOf(BinaryBuilder::ascii(""), "\x09")));
  EXPECT_TRUE(isBoundedPropertyList(dictionaryOf(BinaryBuilder::ascii("a~b"), "\x09")));
}

TEST(PropertyListGuard, ABinaryDictionarysKeysHoldNoNul) {
  const auto is_bounded_with_key = [](const std::string& units) {
    const std::string key = BinaryBuilder::marker(0x6, units.size() / 2) + units;
    return isBoundedPropertyList(dictionaryOf(key, "\x09"));
  };
  EXPECT_TRUE(is_bounded_with_key("\0a\0b"s));
  EXPECT_TRUE(is_bounded_with_key("a\0\0b\0\1"s));  // no unit of two bytes is zero
  EXPECT_FALSE(is_bounded_with_key("\0\0\0b"s));
  EXPECT_FALSE(is_bounded_with_key("aa\0\0aa"s));
  EXPECT_FALSE(is_bounded_with_key("aa\0\0"s));
  EXPECT_FALSE(isBoundedPropertyList(dictionaryOf(BinaryBuilder::ascii("a\0b"s), "\x09")));
  EXPECT_TRUE(isBoundedPropertyList(
      dictionaryOf(BinaryBuilder::ascii("a"), BinaryBuilder::ascii("a\0b"s))));
}

TEST(PropertyListGuard, ABracketRightBehindATextOrACommentCounts) {
  const std::string open = repeated("(", kMaxPropertyListDepth);
  for (const char* before :
       {"\"\"", "''", "\"a\"", "a", "/**/", "/* a */", "//\n", "// a\r", ","}) {
    EXPECT_TRUE(isBoundedPropertyList(before + open)) << before;
    EXPECT_FALSE(isBoundedPropertyList(before + open + "(")) << before;
  }
}

constexpr std::string_view kBareWordSigns = "_$/:.-";

std::string printableCharacters() {
  std::string all;
  for (char c = '!'; c <= '~'; ++c) all += c;
  return all;
}

TEST(PropertyListGuard, OnlyABareWordHidesTheSlashesOfAComment) {
  const std::string flood = repeated("(", 1000);
  for (const char c : printableCharacters()) {
    if (std::string_view("\"'/").find(c) != std::string_view::npos) continue;
    const bool in_word = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                         kBareWordSigns.find(c) != std::string_view::npos;
    EXPECT_EQ(isBoundedPropertyList(","s + c + "//" + flood), !in_word) << c;
  }
}

TEST(PropertyListGuard, OnlyTheEndOfTheLineEndsALineComment) {
  const std::string flood = repeated("(", 1000);
  EXPECT_TRUE(isBoundedPropertyList("// " + printableCharacters() + flood));
  EXPECT_FALSE(isBoundedPropertyList("// " + printableCharacters() + "\n" + flood));
}

TEST(PropertyListGuard, OnlyBlanksMayStandInFrontOfXml) {
  const std::string xml = repeated("<array>", 1000);
  for (const char* blanks : {"", " ", "\n\t\r ", "\xEF\xBB\xBF", "\x7F"}) {
    EXPECT_FALSE(isBoundedPropertyList(blanks + xml)) << blanks;
  }
  for (const char c : printableCharacters()) {
    EXPECT_EQ(isBoundedPropertyList(c + xml), c != '<') << c;  // text, without a bracket
  }
  EXPECT_TRUE(isBoundedPropertyList(""));
  EXPECT_TRUE(isBoundedPropertyList(" \n"));
}

TEST(PropertyListGuard, NothingBehindTheBytesIsRead) {
  const std::string text = "(\"abc\"" + repeated("(", 1000);
  EXPECT_TRUE(isBoundedPropertyList(std::string_view(text).substr(0, 5)));
  const std::string comment = "(/* */" + repeated("(", 1000);
  EXPECT_TRUE(isBoundedPropertyList(std::string_view(comment).substr(0, 5)));
}

}  // namespace
