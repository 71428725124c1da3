#include "config/property_list_guard.h"

#include <pthread.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

std::string nestedXml(const std::string& open, const std::string& inside, const std::string& close,
                      std::size_t levels) {
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

TEST(PropertyListGuard, OrdinaryListsPass) {
  EXPECT_TRUE(isBoundedPropertyList("<plist><dict><key>a</key><array/></dict></plist>"));
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), "\x09"};
  EXPECT_TRUE(isBoundedPropertyList(list.build()));
}

TEST(PropertyListGuard, XmlNestsUpToTheLimit) {
  EXPECT_TRUE(
      isBoundedPropertyList(nestedXml("<array>", "<string>a</string>", "</array>", kMaxLevels)));
  EXPECT_FALSE(isBoundedPropertyList(
      nestedXml("<array>", "<string>a</string>", "</array>", kMaxLevels + 1)));
  const std::string bare = repeated("<dict>", kMaxLevels);
  EXPECT_TRUE(isBoundedPropertyList(bare));
  EXPECT_FALSE(isBoundedPropertyList(bare + "<dict>"));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<plist>", 1'000'000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<unknown>", 1'000'000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<dict a=\"b\">", 1'000'000)));
}

TEST(PropertyListGuard, EachObjectCountsAtWhatItCosts) {
  EXPECT_EQ(sizeOf("<plist><true/></plist>"), "22 bytes, 662 of memory, 0 levels");
  EXPECT_EQ(sizeOf("<plist><string>abc</string></plist>"), "35 bytes, 684 of memory, 0 levels");
  EXPECT_EQ(sizeOf("<plist><dict><key>ab</key><array/></dict></plist>"),
            "49 bytes, 1639 of memory, 2 levels");
  EXPECT_EQ(sizeOf("<array/>"), "8 bytes, 458 of memory, 1 levels");
  EXPECT_EQ(sizeOf("x"), "damaged");
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

TEST(PropertyListGuard, SiblingsAreNotLevels) {
  EXPECT_TRUE(
      isBoundedPropertyList("<array>" + repeated("<dict></dict><array/>", 1'000) + "</array>"));
  EXPECT_TRUE(isBoundedPropertyList("<array>" + repeated("<dict />", 1'000) + "</array>"));
}

TEST(PropertyListGuard, WhatOnlyLooksLikeATagDoesNotCount) {
  EXPECT_TRUE(isBoundedPropertyList("<array><!--" + repeated("<array>", 1000) + "--></array>"));
  EXPECT_TRUE(
      isBoundedPropertyList("<string><![CDATA[" + repeated("<array>", 1000) + "]]></string>"));
  EXPECT_TRUE(isBoundedPropertyList("<?note " + repeated("<array>", 1000) + "?><array/>"));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<array><!--</array>-->", 1000)));
  EXPECT_FALSE(isBoundedPropertyList(repeated("<array><![CDATA[</array>]]>", 1000)));
}

TEST(PropertyListGuard, AmbiguousXmlIsRefused) {
  EXPECT_FALSE(isBoundedPropertyList("<plist a=\"</dict>\"><true/></plist>"));
  EXPECT_FALSE(isBoundedPropertyList("<plist a='>'><true/></plist>"));
  EXPECT_FALSE(isBoundedPropertyList("<!DOCTYPE plist [ ]><true/>"));
  EXPECT_FALSE(isBoundedPropertyList("<?xml encoding=\"UTF-7\"?><true/>"));
  EXPECT_FALSE(isBoundedPropertyList("<?xml encoding=\"ISO-8859-1\"?><true/>"));
  EXPECT_FALSE(isBoundedPropertyList("<?xml encoding=\"US-ASCII\"?><string>\xC3\xA9</string>"));
  EXPECT_TRUE(isBoundedPropertyList("<?xml encoding=\"US-ASCII\"?><string>e</string>"));
  EXPECT_TRUE(isBoundedPropertyList("<?xml encoding=\"UTF8\"?><string>\xC3\xA9</string>"));
  EXPECT_FALSE(isBoundedPropertyList("<true/>\0"s));
  EXPECT_FALSE(isBoundedPropertyList("<\0t\0r\0u\0e\0/\0>\0"s));
  EXPECT_FALSE(isBoundedPropertyList("<!-- <true/>"));
}

TEST(PropertyListGuard, BinaryNestsUpToTheLimit) {
  EXPECT_TRUE(isBoundedPropertyList(nestedBinary(kMaxLevels)));
  EXPECT_FALSE(isBoundedPropertyList(nestedBinary(kMaxLevels + 1)));
  EXPECT_FALSE(isBoundedPropertyList(nestedBinary(1'000'000)));
}

TEST(PropertyListGuard, ABinaryListThatHoldsItselfIsRefused) {
  BinaryBuilder list;
  list.objects = {list.array({0})};
  EXPECT_FALSE(isBoundedPropertyList(list.build()));
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), list.array({1, 0})};
  EXPECT_FALSE(isBoundedPropertyList(list.build()));
}

TEST(PropertyListGuard, SharedObjectsCountOncePerReference) {
  EXPECT_TRUE(isBoundedPropertyList(sharedBinary(2, 14, "\x09")));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(30, 14, "\x09")));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(100, 2, "\xA0")));
  const std::string large = BinaryBuilder::ascii(std::string(kMegabyte / 64, 'a'));
  EXPECT_TRUE(isBoundedPropertyList(sharedBinary(1, 14, large)));
  EXPECT_FALSE(isBoundedPropertyList(sharedBinary(2, 14, large)));
}

TEST(PropertyListGuard, EachBoundIsReachedExactly) {
  // A thousand booleans, and a text whose bytes count once in the file and three times in memory.
  const auto list_of = [](std::size_t text_bytes) {
    return "<array>" + repeated("<true/>", 1000) + "<string>" + std::string(text_bytes, 'a') +
           "</string></array>";
  };
  const std::size_t most_memory = kPropertyListBound.memory_bytes;
  const std::size_t most_text = (most_memory - measurePropertyList(list_of(0))->memory_bytes) / 4;
  EXPECT_TRUE(isBoundedPropertyList(list_of(most_text)));
  EXPECT_FALSE(isBoundedPropertyList(list_of(most_text + 1)));
  // A comment needs no memory.
  std::string comment = "<true/><!--";
  comment.resize(kPropertyListBound.file_bytes - 3, ' ');
  EXPECT_TRUE(isBoundedPropertyList(comment + "-->"));
  EXPECT_FALSE(isBoundedPropertyList(comment + "--> "));
}

TEST(PropertyListGuard, WhatIsNeitherXmlNorBinaryIsRefused) {
  for (const std::string& bytes : {""s, " \n"s, "text"s, "{ Enabled = YES; }"s, "( a, b )"s,
                                   "\"a\""s, "// comment\n<true/>"s, "\xFE\xFF\0<\0t"s}) {
    EXPECT_EQ(sizeOf(bytes), "damaged") << bytes;
  }
}

TEST(PropertyListGuard, MalformedBinaryListsAreRefused) {
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), BinaryBuilder::ascii("a"), "\x09"};
  const std::string good = list.build();
  ASSERT_TRUE(isBoundedPropertyList(good));
  for (std::size_t size = 0; size < good.size(); ++size) {
    if (size < 6) continue;  // too short to be recognised as binary
    EXPECT_FALSE(isBoundedPropertyList(std::string(good, 0, size))) << size;
  }
  for (std::size_t at = good.size() - 26; at < good.size(); ++at) {
    std::string changed = good;
    changed[at] = '\xFF';
    EXPECT_FALSE(isBoundedPropertyList(changed)) << at;
  }
  EXPECT_FALSE(isBoundedPropertyList("bplist1" + good.substr(7)));
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
  std::string xml = nestedXml("<dict><key>a</key>", "<true/>", "</dict>", kMaxLevels);
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

TEST(PropertyListGuard, ScalarsAreNoLevels) {
  for (const std::string scalar :
       {"key", "string", "integer", "real", "date", "data", "true", "false"}) {
    const std::string inside = "<" + scalar + "></" + scalar + ">";
    EXPECT_TRUE(isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxLevels)))
        << scalar;
  }
}

TEST(PropertyListGuard, OnlyTheOutermostPlistElementIsNoLevel) {
  const std::string inside = "<plist></plist>";
  EXPECT_TRUE(isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxLevels - 1)));
  EXPECT_FALSE(isBoundedPropertyList(nestedXml("<array>", inside, "</array>", kMaxLevels)));
}

TEST(PropertyListGuard, TheTopLevelIsCountedLikeAnyOther) {
  const std::string xml = repeated("<dict>", kMaxLevels);
  EXPECT_TRUE(isBoundedPropertyList(repeated("<dict></dict>", 1000) + xml));
  EXPECT_FALSE(isBoundedPropertyList("<dict></dict></dict>" + xml + "<dict>"));
  EXPECT_FALSE(isBoundedPropertyList("<plist></plist>" + xml + "<dict>"));
}

// The smallest dictionary with one key and one value.
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
  EXPECT_TRUE(is_bounded_with_key("a\0\0b\0\1"s));  // no UTF-16 unit is zero
  EXPECT_FALSE(is_bounded_with_key("\0\0\0b"s));
  EXPECT_FALSE(is_bounded_with_key("aa\0\0aa"s));
  EXPECT_FALSE(is_bounded_with_key("aa\0\0"s));
  EXPECT_FALSE(isBoundedPropertyList(dictionaryOf(BinaryBuilder::ascii("a\0b"s), "\x09")));
  EXPECT_TRUE(isBoundedPropertyList(
      dictionaryOf(BinaryBuilder::ascii("a"), BinaryBuilder::ascii("a\0b"s))));
}

TEST(PropertyListGuard, OnlyBlanksMayStandInFrontOfXml) {
  const std::string xml = repeated("<array>", 1000);
  for (const char* blanks : {"", " ", "\n\t\r ", "\xEF\xBB\xBF", "\x7F"}) {
    EXPECT_FALSE(isBoundedPropertyList(blanks + xml)) << blanks;
  }
  for (const char* blanks : {"", " ", "\n\t\r ", "\xEF\xBB\xBF", "\x7F"}) {
    EXPECT_TRUE(isBoundedPropertyList(blanks + "<true/>"s)) << blanks;
  }
}

}  // namespace
