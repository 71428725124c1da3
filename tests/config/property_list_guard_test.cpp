#include "config/property_list_guard.h"

#include <pthread.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/base/binary_builder.h"

namespace {

using namespace std::string_literals;
using vorlatch::kPropertyListBound;
using vorlatch::measurePropertyList;
using vorlatch::PropertyListSize;
using vorlatch::test::BinaryBuilder;

constexpr std::size_t kMegabyte = std::size_t{1024} * 1024;
constexpr std::size_t kMaxLevels = kPropertyListBound.levels;

bool isBoundedPropertyList(std::string_view bytes) {
  const std::optional<PropertyListSize> size = measurePropertyList(bytes);
  return size && size->isWithin(kPropertyListBound);
}

std::string sizeOf(std::string_view bytes) {
  const std::optional<PropertyListSize> size = measurePropertyList(bytes);
  if (!size) return "damaged";
  return std::to_string(size->file_bytes) + " bytes, " + std::to_string(size->memory_bytes) +
         " of memory, " + std::to_string(size->levels) + " levels";
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

std::string nestedXml(std::size_t levels, const std::string& inside,
                      const std::string& open = "<array>", const std::string& close = "</array>") {
  return "<plist version=\"1.0\">" + repeated(open, levels) + inside + repeated(close, levels) +
         "</plist>";
}

// Nested arrays with one member each; the innermost is empty.
std::string nestedBinary(std::size_t levels) {
  BinaryBuilder list{.objects = {}, .reference_size = 4};
  for (std::size_t i = 1; i < levels; ++i) list.objects.push_back(list.array({i}));
  list.objects.push_back(list.array({}));
  return list.build();
}

// Nested arrays that each refer to the next one `fan_out` times; the last refers to `object`.
std::string sharedBinary(std::size_t levels, std::size_t fan_out, const std::string& object) {
  BinaryBuilder list;
  for (std::uint64_t i = 1; i <= levels; ++i) {
    list.objects.push_back(list.array(std::vector<std::uint64_t>(fan_out, i)));
  }
  list.objects.push_back(object);
  return list.build();
}

// The smallest dictionary with one key and one value.
std::string dictionaryOf(const std::string& key, const std::string& value = "\x09") {
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), key, value};
  return list.build();
}

std::string wideKey(const std::string& units) {
  return dictionaryOf(BinaryBuilder::marker(0x6, units.size() / 2) + units);
}

// Each list, and whether it is within the bounds.
void expectBounded(const std::vector<std::pair<std::string, bool>>& lists) {
  for (std::size_t i = 0; i < lists.size(); ++i) {
    EXPECT_EQ(isBoundedPropertyList(lists[i].first), lists[i].second) << "list " << i;
  }
}

TEST(PropertyListGuard, XmlNestsUpToTheLimit) {
  const std::string bare = repeated("<dict>", kMaxLevels);
  expectBounded({
      {nestedXml(kMaxLevels, "<string>a</string>"), true},
      {nestedXml(kMaxLevels + 1, "<string>a</string>"), false},
      {bare, true},
      {bare + "<dict>", false},
      {repeated("<plist>", 1'000'000), false},
      {repeated("<unknown>", 1'000'000), false},
      {repeated("<dict a=\"b\">", 1'000'000), false},
      // Siblings are no levels.
      {"<array>" + repeated("<dict></dict><array/>", 1'000) + "</array>", true},
      {"<array>" + repeated("<dict />", 1'000) + "</array>", true},
      // Only the outermost plist element is no level.
      {nestedXml(kMaxLevels - 1, "<plist></plist>"), true},
      {nestedXml(kMaxLevels, "<plist></plist>"), false},
      // The top level is counted like any other.
      {repeated("<dict></dict>", 1000) + bare, true},
      {"<dict></dict></dict>" + bare + "<dict>", false},
      {"<plist></plist>" + bare + "<dict>", false},
  });
  for (const std::string scalar :
       {"key", "string", "integer", "real", "date", "data", "true", "false"}) {
    const std::string inside = "<" + scalar + "></" + scalar + ">";
    EXPECT_TRUE(isBoundedPropertyList(nestedXml(kMaxLevels, inside))) << scalar;
  }
}

TEST(PropertyListGuard, EachObjectCountsAtWhatItCosts) {
  EXPECT_EQ(sizeOf("<plist><true/></plist>"), "22 bytes, 662 of memory, 0 levels");
  EXPECT_EQ(sizeOf("<plist><string>abc</string></plist>"), "35 bytes, 684 of memory, 0 levels");
  EXPECT_EQ(sizeOf("<plist><dict><key>ab</key><array/></dict></plist>"),
            "49 bytes, 1639 of memory, 2 levels");
  EXPECT_EQ(sizeOf("<array/>"), "8 bytes, 458 of memory, 1 levels");
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("ab"), list.array({3, 3}),
                  "\x09"};
  const std::string bytes = list.build();
  EXPECT_EQ(sizeOf(bytes), std::to_string(bytes.size()) + " bytes, " +
                               std::to_string(bytes.size() + 450 + 240 + 450 + 380) +
                               " of memory, 2 levels");
}

TEST(PropertyListGuard, CountingStopsWhereABoundIsPassed) {
  EXPECT_EQ(measurePropertyList(repeated("<array>", 1000))->levels, kMaxLevels + 1);
  EXPECT_EQ(measurePropertyList(nestedBinary(1000))->levels, kMaxLevels + 1);
  const std::size_t most = kPropertyListBound.memory_bytes;
  EXPECT_LT(measurePropertyList("<array>" + repeated("<true/>", 100'000))->memory_bytes,
            most + 1000);
  EXPECT_EQ(measurePropertyList(std::string(2 * kMegabyte, '<'))->file_bytes, 2 * kMegabyte);
}

TEST(PropertyListGuard, WhatOnlyLooksLikeATagDoesNotCount) {
  const std::string tags = repeated("<array>", 1000);
  expectBounded({{"<array><!--" + tags + "--></array>", true},
                 {"<string><![CDATA[" + tags + "]]></string>", true},
                 {"<?note " + tags + "?><array/>", true},
                 {repeated("<array><!--</array>-->", 1000), false},
                 {repeated("<array><![CDATA[</array>]]>", 1000), false}});
  // Only blanks may stand in front of the first tag.
  for (const std::string blanks : {"", " ", "\n\t\r ", "\xEF\xBB\xBF", "\x7F"}) {
    expectBounded({{blanks + tags, false}, {blanks + "<true/>", true}});
  }
}

TEST(PropertyListGuard, AmbiguousXmlIsRefused) {
  expectBounded({{"<plist a=\"</dict>\"><true/></plist>", false},
                 {"<plist a='>'><true/></plist>", false},
                 {"<!DOCTYPE plist [ ]><true/>", false},
                 {"<?xml encoding=\"UTF-7\"?><true/>", false},
                 {"<?xml encoding=\"ISO-8859-1\"?><true/>", false},
                 {"<?xml encoding=\"US-ASCII\"?><string>\xC3\xA9</string>", false},
                 {"<?xml encoding=\"US-ASCII\"?><string>e</string>", true},
                 {"<?xml encoding=\"UTF8\"?><string>\xC3\xA9</string>", true},
                 {"<true/>\0"s, false},
                 {"<\0t\0r\0u\0e\0/\0>\0"s, false},
                 {"<!-- <true/>", false}});
  for (const std::string& bytes : {""s, " \n"s, "text"s, "x"s, "{ Enabled = YES; }"s, "( a, b )"s,
                                   "\"a\""s, "// comment\n<true/>"s, "\xFE\xFF\0<\0t"s}) {
    EXPECT_EQ(sizeOf(bytes), "damaged") << bytes;
  }
}

TEST(PropertyListGuard, BinaryListsNestAndShareUpToTheLimit) {
  const std::string large = BinaryBuilder::ascii(std::string(kMegabyte / 64, 'a'));
  BinaryBuilder itself;
  itself.objects = {itself.array({0})};
  BinaryBuilder within;
  within.objects = {within.dictionary({1}, {2}), BinaryBuilder::ascii("a"), within.array({1, 0})};
  expectBounded({{nestedBinary(kMaxLevels), true},
                 {nestedBinary(kMaxLevels + 1), false},
                 {nestedBinary(1'000'000), false},
                 {itself.build(), false},
                 {within.build(), false},
                 // Shared objects count once per reference.
                 {sharedBinary(2, 14, "\x09"), true},
                 {sharedBinary(30, 14, "\x09"), false},
                 {sharedBinary(100, 2, "\xA0"), false},
                 {sharedBinary(1, 14, large), true},
                 {sharedBinary(2, 14, large), false}});
}

TEST(PropertyListGuard, EachBoundIsReachedExactly) {
  // A thousand booleans, and a text whose bytes count once in the file and three times in memory.
  const auto list_of = [](std::size_t text_bytes) {
    return "<array>" + repeated("<true/>", 1000) + "<string>" + std::string(text_bytes, 'a') +
           "</string></array>";
  };
  const std::size_t most_memory = kPropertyListBound.memory_bytes;
  const std::size_t most_text = (most_memory - measurePropertyList(list_of(0))->memory_bytes) / 4;
  // A comment needs no memory.
  std::string comment = "<true/><!--";
  comment.resize(kPropertyListBound.file_bytes - 3, ' ');
  expectBounded({{list_of(most_text), true},
                 {list_of(most_text + 1), false},
                 {comment + "-->", true},
                 {comment + "--> ", false}});
}

TEST(PropertyListGuard, MalformedBinaryListsAreRefused) {
  const std::string good = dictionaryOf(BinaryBuilder::ascii("a"));
  ASSERT_TRUE(isBoundedPropertyList(good));
  for (std::size_t size = 6; size < good.size(); ++size) {  // below, it is not recognised as binary
    EXPECT_FALSE(isBoundedPropertyList(std::string(good, 0, size))) << size;
  }
  for (std::size_t at = good.size() - 26; at < good.size(); ++at) {
    std::string changed = good;
    changed[at] = '\xFF';
    EXPECT_FALSE(isBoundedPropertyList(changed)) << at;
  }
  EXPECT_FALSE(isBoundedPropertyList("bplist1" + good.substr(7)));
}

TEST(PropertyListGuard, ABinaryDictionarysKeysAreTextsWithoutNul) {
  for (const std::string& no_text : {"\x09"s, "\x10\x05"s, "\xA0"s, "\xD0"s, "\x41x"s}) {
    EXPECT_FALSE(isBoundedPropertyList(dictionaryOf(no_text))) << no_text;
  }
  expectBounded({{dictionaryOf(BinaryBuilder::ascii("")), true},
                 {dictionaryOf(BinaryBuilder::ascii("a~b")), true},
                 {dictionaryOf(BinaryBuilder::ascii("a\0b"s)), false},
                 {dictionaryOf(BinaryBuilder::ascii("a"), BinaryBuilder::ascii("a\0b"s)), true},
                 {wideKey("\0a\0b"s), true},
                 {wideKey("a\0\0b\0\1"s), true},  // no UTF-16 unit is zero
                 {wideKey("\0\0\0b"s), false},
                 {wideKey("aa\0\0aa"s), false},
                 {wideKey("aa\0\0"s), false}});
}

// Parsing what the guard accepts must fit the stack of a dispatch queue's thread. Sanitizers
// enlarge stack frames.
#ifdef VORLATCH_SANITIZED
constexpr std::size_t kSmallStackBytes = 8 * kMegabyte;
#else
constexpr std::size_t kSmallStackBytes = kMegabyte / 2;
#endif

TEST(PropertyListGuard, DeepestListFitsASmallStack) {
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
  std::string xml = nestedXml(kMaxLevels, "<true/>", "<dict><key>a</key>", "</dict>");
  std::string binary = nestedBinary(kMaxLevels);
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

}  // namespace
