#include "base/utf8.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using vorlatch::appendUtf8;
using vorlatch::isValidUtf8;

TEST(Utf8, AcceptsOnlyWellFormedSequences) {
  for (const std::string& text :
       {""s, "a\0b"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s, "\xEE\x80\x80"s,
        "\xEF\xBF\xBF"s, "\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s}) {
    EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
  }
  for (const std::string& text :
       {"\x80"s, "\xBF"s, "\xC0\x80"s, "\xC1\xBF"s, "\xC2"s, "\xC2\x41"s, "\xE0\x9F\xBF"s,
        "\xE1\x80"s, "\xED\xA0\x80"s, "\xED\xBF\xBF"s, "\xF0\x8F\xBF\xBF"s, "\xF4\x90\x80\x80"s,
        "\xF5\x80\x80\x80"s, "\xF0\x90\x80"s, "\xF8\x88\x80\x80\x80"s, "\xFF"s, "\xC2\xC2\x80"s}) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
  }
}

TEST(Utf8, EveryCharacterIsWrittenAsItIsRead) {
  for (std::uint32_t code_point = 0; code_point <= 0x110000; ++code_point) {
    const bool character = code_point <= 0x10FFFF && (code_point < 0xD800 || code_point > 0xDFFF);
    std::string text = "a";
    ASSERT_EQ(appendUtf8(text, code_point), character) << code_point;
    ASSERT_EQ(text.size() > 1, character) << code_point;
    ASSERT_TRUE(isValidUtf8(text)) << code_point;
  }
}

}  // namespace
