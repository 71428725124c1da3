#include "base/display_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "base/utf8.h"

namespace vorlatch {
namespace {

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

// Blocks of East Asian Wide and Fullwidth characters; unassigned code points in them do no harm.
constexpr std::array<Range, 14> kWide = {{{0x1100, 0x115F},
                                          {0x2E80, 0x303E},
                                          {0x3041, 0xA4CF},
                                          {0xA960, 0xA97C},
                                          {0xAC00, 0xD7A3},
                                          {0xF900, 0xFAFF},
                                          {0xFE10, 0xFE19},
                                          {0xFE30, 0xFE6F},
                                          {0xFF01, 0xFF60},
                                          {0xFFE0, 0xFFE6},
                                          {0x1F300, 0x1F64F},
                                          {0x1F900, 0x1F9FF},
                                          {0x20000, 0x2FFFD},
                                          {0x30000, 0x3FFFD}}};
// Characters of width 0: combining marks, vowels and finals of Hangul, and format characters.
constexpr std::array<Range, 16> kWithoutWidth = {{{0x0300, 0x036F},
                                                  {0x0483, 0x0489},
                                                  {0x061C, 0x061C},
                                                  {0x1160, 0x11FF},
                                                  {0x1AB0, 0x1ACE},
                                                  {0x1DC0, 0x1DFF},
                                                  {0x200B, 0x200F},
                                                  {0x202A, 0x202E},
                                                  {0x2060, 0x2064},
                                                  {0x20D0, 0x20F0},
                                                  {0x302A, 0x302D},
                                                  {0x3099, 0x309A},
                                                  {0xD7B0, 0xD7FB},
                                                  {0xFE00, 0xFE0F},
                                                  {0xFE20, 0xFE2F},
                                                  {0xFEFF, 0xFEFF}}};

template <std::size_t n>
bool isIn(const std::array<Range, n>& ranges, std::uint32_t character) {
  return std::any_of(ranges.begin(), ranges.end(), [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

std::size_t widthOf(std::uint32_t character) {
  if (isIn(kWithoutWidth, character)) return 0;
  return isIn(kWide, character) ? 2 : 1;
}

// Returns the length in bytes of the UTF-8 character that the text begins with, or 0.
std::size_t characterLength(std::string_view text) {
  for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (isValidUtf8(text.substr(0, length))) return length;
  }
  return 0;
}

std::uint32_t decode(std::string_view character) {
  const auto byte = [&character](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(character[i]));
  };
  if (character.size() == 1) return byte(0);
  std::uint32_t value = byte(0) & (0xFFU >> (character.size() + 1));
  for (std::size_t i = 1; i < character.size(); ++i) value = value << 6U | (byte(i) & 0x3FU);
  return value;
}

std::string byteInHex(char byte) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "\\x%02X",
                static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return text.data();
}

// Returns true for C1 controls, line and paragraph separators, and changes of text direction.
bool isCommand(std::uint32_t character) {
  constexpr std::array<Range, 5> kCommands = {
      {{0x80, 0x9F}, {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}}};
  return isIn(kCommands, character);
}

std::string spelledOut(std::string_view character) {
  std::string text;
  for (const char byte : character) text += byteInHex(byte);
  return text;
}

// Punctuation that ends a Chinese phrase and therefore never begins a line.
constexpr std::string_view kNeverFirst = "，。、：；！？）」』》”’…";

}  // namespace

std::string visible(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    const auto first = static_cast<unsigned char>(character[0]);
    if (length == 1 && (first < ' ' || first == 0x7F)) {
      shown += '^';
      shown += static_cast<char>(first ^ 0x40U);
    } else if (length == 0 || isCommand(decode(character))) {
      shown += spelledOut(character);
    } else {
      shown += character;
    }
    text.remove_prefix(character.size());
  }
  return shown;
}

std::string commandsEscaped(std::string_view json) {
  std::string escaped;
  while (!json.empty()) {
    const std::size_t length = std::max<std::size_t>(characterLength(json), 1);
    const std::string_view character = json.substr(0, length);
    const std::uint32_t code_point = decode(character);
    if (code_point == 0x7F || isCommand(code_point)) {
      std::array<char, 8> text{};
      std::snprintf(text.data(), text.size(), "\\u%04x", static_cast<unsigned>(code_point));
      escaped += text.data();
    } else {
      escaped += character;
    }
    json.remove_prefix(length);
  }
  return escaped;
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(characterLength(text), 1);
    width += widthOf(decode(text.substr(0, length)));
    text.remove_prefix(length);
  }
  return width;
}

std::vector<std::string> wrappedToWidth(std::string_view text, std::size_t columns) {
  std::vector<std::string> lines;
  std::string line;
  std::size_t break_at = 0;  // where the line may end, in bytes; 0: nowhere
  bool was_wide = false;
  const auto end_line = [&](std::size_t end) {
    lines.push_back(line.substr(0, line.find_last_not_of(' ', end - 1) + 1));
    line.erase(0, end);
    break_at = 0;
  };
  while (!text.empty()) {
    const std::string_view character =
        text.substr(0, std::max<std::size_t>(characterLength(text), 1));
    text.remove_prefix(character.size());
    const bool is_wide = widthOf(decode(character)) == 2;
    if ((is_wide || was_wide) && kNeverFirst.find(character) == kNeverFirst.npos) {
      break_at = line.size();
    }
    was_wide = is_wide;
    const bool is_full = displayWidth(line) + displayWidth(character) > columns && !line.empty();
    if (is_full && character == " ") {
      end_line(line.size());
      continue;
    }
    if (is_full) end_line(break_at != 0 ? break_at : line.size());
    line += character;
    if (character == " ") break_at = line.size();
  }
  lines.push_back(line);
  return lines;
}

std::string cutToWidth(std::string_view text, std::size_t columns) {
  if (displayWidth(text) <= columns) return std::string(text);
  if (columns == 0) return {};
  std::size_t width = 0;
  std::size_t kept = 0;
  while (kept < text.size()) {
    const std::size_t length = std::max<std::size_t>(characterLength(text.substr(kept)), 1);
    width += widthOf(decode(text.substr(kept, length)));
    if (width > columns - 1) break;
    kept += length;
  }
  return std::string(text.substr(0, kept)) + "…";
}

}  // namespace vorlatch
