// Text as it is shown.
#include "base/display_text.h"

#include <clocale>
#include <cstdint>
#include <cwchar>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "base/utf8.h"

namespace vorlatch::cli {
namespace {

using namespace std::string_literals;

std::string utf8(std::uint32_t character) {
  std::string text;
  EXPECT_TRUE(appendUtf8(text, character));
  return text;
}

TEST(VisibleText, LeavesWhatIsHarmless) {
  for (const char* text : {"", "alpha", "微信 目标: 已启动", "a\u0301", "\U0001F600", "~ é"}) {
    EXPECT_EQ(visible(text), text);
  }
}

// Controls, commands beyond ASCII, changes of direction, and bytes that are not UTF-8.
TEST(VisibleText, SpellsCommandsOut) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"\0\t\n\r\x1b\x1f\x7f"s, "^@^I^J^M^[^_^?"},
      {"\u0080\u009b\u009f\u00a0", "\\xC2\\x80\\xC2\\x9B\\xC2\\x9F\u00a0"},
      {"a" + utf8(0x202E) + "b" + utf8(0x2066) + "c", "a\\xE2\\x80\\xAEb\\xE2\\x81\\xA6c"},
      {utf8(0x200F) + utf8(0x2028), "\\xE2\\x80\\x8F\\xE2\\x80\\xA8"},
      {"a\u061c" + utf8(0x200E) + "b", "a\\xD8\\x9C\\xE2\\x80\\x8Eb"},
      {"a\xff\xc3", "a\\xFF\\xC3"},
      {"\xe5\xbe", "\\xE5\\xBE"},
      {"\xc0\x9b", "\\xC0\\x9B"},
      {"\xed\xa0\x80 b", "\\xED\\xA0\\x80 b"}};
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(visible(text), shown);
    EXPECT_EQ(visible(shown), shown);
  }
}

TEST(VisibleText, EscapesCommandsInJson) {
  EXPECT_EQ(commandsEscaped("{\"a\u009b\u202e\x7f\": \"微信\u061c\u200e\u200f\"}\n"),
            "{\"a\\u009b\\u202e\\u007f\": \"微信\\u061c\\u200e\\u200f\"}\n");
}

// The C library keeps Unicode's tables. Its -1 is a character that has no width, and those are
// spelled out before a width is asked.
TEST(DisplayWidth, AgreesWithTheLibrary) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  // Alphabets, marks, punctuation, boxes, ideographs, syllables, compatibility forms, faces.
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges{
      {0x20, 0x52F},    {0x1100, 0x11FF}, {0xA960, 0xA97C},   {0x1AB0, 0x1AFF},
      {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF}, {0x2010, 0x2064},   {0x2190, 0x22FF},
      {0x2500, 0x25FC}, {0x2E80, 0xA4CF}, {0xAC00, 0xD7FB},   {0xF900, 0xFAFF},
      {0xFE00, 0xFE6F}, {0xFF01, 0xFFEE}, {0x20000, 0x323AF}, {0x1F600, 0x1F64F}};
  for (const auto& [first, last] : ranges) {
    int compared = 0;
    for (std::uint32_t character = first; character <= last; ++character) {
      const int width = wcwidth(static_cast<wchar_t>(character));
      if (width < 0) continue;
      ++compared;
      EXPECT_EQ(displayWidth(utf8(character)), static_cast<std::size_t>(width))
          << std::hex << character;
    }
    EXPECT_GT(compared, 20) << std::hex << first;
  }
}

TEST(DisplayWidth, OfTexts) {
  EXPECT_EQ(displayWidth(""), 0U);
  EXPECT_EQ(displayWidth("ab微信"), 6U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U);
  EXPECT_EQ(displayWidth("a\u061c\u200e\u200fb"), 2U);
}

TEST(CutToWidth, NeverCutsACharacter) {
  const std::vector<std::tuple<std::string, std::size_t, std::string>> cases{
      {"alpha", 5, "alpha"},  {"微信", 4, "微信"},  {"", 0, ""},
      {"alpha", 4, "alp…"},   {"alpha", 1, "…"},    {"alpha", 0, ""},
      {"微信微", 5, "微信…"}, {"微信微", 4, "微…"}, {"e\u0301bc", 2, "e\u0301…"}};
  for (const auto& [text, columns, cut] : cases) EXPECT_EQ(cutToWidth(text, columns), cut);
}

TEST(WrappedToWidth, BreaksAtBlanksAndWideCharacters) {
  using Lines = std::vector<std::string>;
  const std::vector<std::tuple<std::string, std::size_t, Lines>> cases{
      {"", 5, {""}},
      {"one two three", 8, {"one two", "three"}},
      {"one two three", 7, {"one two", "three"}},
      {"one  two", 4, {"one", "two"}},
      {"incomprehensible", 6, {"incomp", "rehens", "ible"}},
      {"内存限制，单位", 8, {"内存限", "制，单位"}},
      {"band 内存", 8, {"band 内", "存"}},
      {"微信", 1, {"微", "信"}}};
  for (const auto& [text, columns, lines] : cases) {
    EXPECT_EQ(wrappedToWidth(text, columns), lines) << text;
  }
}

}  // namespace
}  // namespace vorlatch::cli
