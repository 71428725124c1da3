// Text as it is shown, tables of it, and the nearest of several words.
#include "base/display_text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdint>
#include <cwchar>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "cli/table.h"
#include "control/nearest.h"

namespace vorlatch::cli {
namespace {

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

TEST(VisibleText, SpellsControlCharactersOut) {
  using namespace std::string_view_literals;
  EXPECT_EQ(visible("\0\t\n\r\x1b\x1f\x7f"sv), "^@^I^J^M^[^_^?");
}

TEST(VisibleText, SpellsCommandsBeyondAsciiOut) {
  EXPECT_EQ(visible("\u0080\u009b\u009f\u00a0"), "\\xC2\\x80\\xC2\\x9B\\xC2\\x9F\u00a0");
  EXPECT_EQ(visible("a" + utf8(0x202E) + "b" + utf8(0x2066) + "c"),
            "a\\xE2\\x80\\xAEb\\xE2\\x81\\xA6c");
  EXPECT_EQ(visible(utf8(0x200F) + utf8(0x2028)), "\\xE2\\x80\\x8F\\xE2\\x80\\xA8");
}

TEST(VisibleText, SpellsEveryMarkOfDirectionOut) {
  EXPECT_EQ(visible("a\u061c" + utf8(0x200E) + utf8(0x200F) + "b"),
            "a\\xD8\\x9C\\xE2\\x80\\x8E\\xE2\\x80\\x8Fb");
  EXPECT_EQ(commandsEscaped("\"\u061c\u200e\u200f\""), "\"\\u061c\\u200e\\u200f\"");
  EXPECT_EQ(displayWidth("a\u061c\u200e\u200fb"), 2U);
}

TEST(VisibleText, SpellsBytesThatAreNotUtf8Out) {
  EXPECT_EQ(visible("a\xff\xc3"), "a\\xFF\\xC3");
  EXPECT_EQ(visible("\xe5\xbe"), "\\xE5\\xBE");
  EXPECT_EQ(visible("\xc0\x9b"), "\\xC0\\x9B");
  EXPECT_EQ(visible("\xed\xa0\x80"
                    "b"),
            "\\xED\\xA0\\x80b");
}

TEST(VisibleText, TwiceIsOnce) {
  const std::string once = visible("\x1b\xff\u009b 微");
  EXPECT_EQ(visible(once), once);
}

// Whether the C library, which keeps Unicode's tables, agrees. Its -1 is a character that has no
// width, and those are spelled out before a width is asked.
void expectWidthsOfTheLibrary(std::uint32_t first, std::uint32_t last) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  int compared = 0;
  for (std::uint32_t character = first; character <= last; ++character) {
    const int width = wcwidth(static_cast<wchar_t>(character));
    if (width < 0) continue;
    ++compared;
    EXPECT_EQ(displayWidth(utf8(character)), static_cast<std::size_t>(width))
        << std::hex << character;
  }
  EXPECT_GT(compared, 20);
}

TEST(DisplayWidth, LatinGreekCyrillicAndTheirMarks) {
  expectWidthsOfTheLibrary(0x20, 0x52F);
}
TEST(DisplayWidth, HangulLetters) {
  expectWidthsOfTheLibrary(0x1100, 0x11FF);
  expectWidthsOfTheLibrary(0xA960, 0xA97C);
}
TEST(DisplayWidth, MoreMarks) {
  expectWidthsOfTheLibrary(0x1AB0, 0x1AFF);
  expectWidthsOfTheLibrary(0x1DC0, 0x1DFF);
  expectWidthsOfTheLibrary(0x20D0, 0x20FF);
}
TEST(DisplayWidth, PunctuationAndArrows) {
  expectWidthsOfTheLibrary(0x2010, 0x2064);
  expectWidthsOfTheLibrary(0x2190, 0x22FF);
}
TEST(DisplayWidth, Boxes) {
  expectWidthsOfTheLibrary(0x2500, 0x25FC);
}
TEST(DisplayWidth, CjkWithKanaAndYi) {
  expectWidthsOfTheLibrary(0x2E80, 0xA4CF);
}
TEST(DisplayWidth, HangulSyllables) {
  expectWidthsOfTheLibrary(0xAC00, 0xD7FB);
}
TEST(DisplayWidth, CompatibilityForms) {
  expectWidthsOfTheLibrary(0xF900, 0xFAFF);
  expectWidthsOfTheLibrary(0xFE00, 0xFE6F);
  expectWidthsOfTheLibrary(0xFF01, 0xFFEE);
}
TEST(DisplayWidth, RareIdeographs) {
  expectWidthsOfTheLibrary(0x20000, 0x323AF);
}
TEST(DisplayWidth, Faces) {
  expectWidthsOfTheLibrary(0x1F600, 0x1F64F);
}

TEST(DisplayWidth, OfTexts) {
  EXPECT_EQ(displayWidth(""), 0U);
  EXPECT_EQ(displayWidth("ab微信"), 6U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U);
}

TEST(CutToWidth, LeavesWhatFits) {
  EXPECT_EQ(cutToWidth("alpha", 5), "alpha");
  EXPECT_EQ(cutToWidth("微信", 4), "微信");
  EXPECT_EQ(cutToWidth("", 0), "");
}

TEST(CutToWidth, EndsInAnEllipsisAndNeverCutsACharacter) {
  EXPECT_EQ(cutToWidth("alpha", 4), "alp…");
  EXPECT_EQ(cutToWidth("alpha", 1), "…");
  EXPECT_EQ(cutToWidth("alpha", 0), "");
  EXPECT_EQ(cutToWidth("微信微", 5), "微信…");
  EXPECT_EQ(cutToWidth("微信微", 4), "微…");
  EXPECT_EQ(cutToWidth("e\u0301bc", 2), "e\u0301…");
}

Terminal terminalOf(std::size_t columns, bool has_colour = false) {
  Terminal terminal;
  terminal.columns = [columns] { return columns; };
  terminal.has_colour = has_colour;
  return terminal;
}

Table sample() {
  Table table({"NAME", "PID", "STATE"});
  table.add({"微信", "7", {"held", Colour::Green}});
  table.add({"a\tb", "-12", "-"});
  table.add({"backboardd", "-", ""});
  return table;
}

TEST(Table, AlignsByWidthAndNumbersToTheRight) {
  EXPECT_EQ(sample().text(terminalOf(0)),
            "NAME        PID  STATE\n"
            "微信          7  held\n"
            "a^Ib        -12  -\n"
            "backboardd    -\n");
}

TEST(Table, AColumnWithoutANumberIsNotAlignedToTheRight) {
  Table table({"NUMBER", "TEXT"});
  table.add({"-", "x"});
  table.add({"5s", "-"});
  EXPECT_EQ(table.text(terminalOf(0)),
            "NUMBER  TEXT\n"
            "-       x\n"
            "5s      -\n");
}

TEST(Table, ColoursDoNotCountAsWidth) {
  EXPECT_EQ(sample().text(terminalOf(0, true)),
            "\x1b[1mNAME\x1b[0m        \x1b[1mPID\x1b[0m  \x1b[1mSTATE\x1b[0m\n"
            "微信          7  \x1b[32mheld\x1b[0m\n"
            "a^Ib        -12  -\n"
            "backboardd    -\n");
}

TEST(Table, TheWidestColumnIsCutUntilALineFits) {
  EXPECT_EQ(sample().text(terminalOf(22)), sample().text(terminalOf(0)));
  EXPECT_EQ(sample().text(terminalOf(18)),
            "NAME    PID  STATE\n"
            "微信      7  held\n"
            "a^Ib    -12  -\n"
            "backb…    -\n");
}

TEST(Table, NoColumnIsCutAway) {
  EXPECT_EQ(sample().text(terminalOf(1)),
            "NAME  PID  STA…\n"
            "微信    7  held\n"
            "a^Ib  -12  -\n"
            "bac…    -\n");
}

TEST(Table, WithoutRowsHasItsHeadings) {
  const Table table({"NAME", "PID"});
  EXPECT_EQ(table.isEmpty(), true);
  EXPECT_EQ(table.text(terminalOf(0)), "NAME  PID\n");
}

const std::vector<std::string> kWords{"status", "set", "unset", "SpringBoard"};

TEST(Nearest, ASlipOfTheKeyboard) {
  EXPECT_EQ(control::nearest("statsu", kWords), "status");
  EXPECT_EQ(control::nearest("springbord", kWords), "SpringBoard");
  EXPECT_EQ(control::nearest("sett", kWords), "set");
  EXPECT_EQ(control::nearest("set", kWords), "set");
}

TEST(Nearest, NothingIsNear) {
  EXPECT_EQ(control::nearest("xyz", kWords), std::nullopt);
  EXPECT_EQ(control::nearest("", kWords), std::nullopt);
  EXPECT_EQ(control::nearest("status", {}), std::nullopt);
}

TEST(Nearest, UpToAThirdOfTheWordMayBeWrong) {
  EXPECT_EQ(control::nearest("stXXus", kWords), "status");
  EXPECT_EQ(control::nearest("stXXXs", kWords), std::nullopt);
}

TEST(Nearest, OfEquallyNearOnesTheFirst) {
  EXPECT_EQ(control::nearest("cat", std::vector<std::string>{"bat", "rat"}), "bat");
}

TEST(Nearest, WhatIsTooLongIsNoSlip) {
  const std::string longest(100, 'a');
  EXPECT_EQ(control::nearest(longest, std::vector<std::string>{longest}), longest);
  EXPECT_EQ(control::nearest(longest + "a", std::vector<std::string>{longest}), std::nullopt);
  EXPECT_EQ(control::nearest(longest, std::vector<std::string>{longest + "a"}), std::nullopt);
}

TEST(Suggestion, AsksForTheNearest) {
  EXPECT_EQ(control::suggestion("statsu", kWords), "; did you mean status?");
  EXPECT_EQ(control::suggestion("xyz", kWords), "");
}

TEST(DisplayText, JsonKeepsItsMeaningWithoutCommands) {
  EXPECT_EQ(commandsEscaped("{\"a\u009b\u202e\x7f\": \"微信\"}\n"),
            "{\"a\\u009b\\u202e\\u007f\": \"微信\"}\n");
}

}  // namespace
}  // namespace vorlatch::cli
