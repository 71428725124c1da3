#include "base/utf8.h"

#include <cstddef>

namespace vorlatch {
namespace {

constexpr std::uint32_t kHighestCodePoint = 0x10FFFF;
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

bool isCharacter(std::uint32_t code_point) {
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  return !surrogate && code_point <= kHighestCodePoint;
}

bool isHighSurrogate(char16_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(char16_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Calls `visit` with each code point, and with U+FFFD for a lone surrogate.
template <typename Visit>
void forEachCharacter(std::u16string_view units, Visit visit) {
  for (std::size_t i = 0; i < units.size(); ++i) {
    std::uint32_t code_point = units[i];
    if (isHighSurrogate(units[i]) && i + 1 < units.size() && isLowSurrogate(units[i + 1])) {
      code_point = 0x10000U + ((code_point & 0x3FFU) << 10U) + (units[++i] & 0x3FFU);
    }
    visit(isCharacter(code_point) ? code_point : kReplacementCharacter);
  }
}

struct Lead {
  std::size_t length;         // bytes of the whole sequence; 0: not a lead byte
  std::uint32_t bits;         // the lead byte's part of the code point
  std::uint32_t lowest_code;  // a lower code point is overlong
};

Lead leadOf(unsigned char byte) {
  if (byte >= 0xC0 && byte < 0xE0) return {2, byte & 0x1FU, 0x80};
  if (byte >= 0xE0 && byte < 0xF0) return {3, byte & 0x0FU, 0x800};
  if (byte >= 0xF0 && byte < 0xF8) return {4, byte & 0x07U, 0x10000};
  return {0, 0, 0};
}

// Returns the length of the well-formed multi-byte sequence at the start of the text, or 0.
std::size_t sequenceLength(std::string_view text) {
  const Lead lead = leadOf(static_cast<unsigned char>(text.front()));
  if (lead.length == 0 || lead.length > text.size()) return 0;
  std::uint32_t code_point = lead.bits;
  for (const char c : text.substr(1, lead.length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80U) return 0;
    code_point = code_point << 6U | (byte & 0x3FU);
  }
  return code_point >= lead.lowest_code && isCharacter(code_point) ? lead.length : 0;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const bool ascii = static_cast<unsigned char>(text.front()) < 0x80;
    const std::size_t length = ascii ? 1 : sequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

bool appendUtf8(std::string& text, std::uint32_t code_point) {
  if (!isCharacter(code_point)) return false;
  const auto append = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (code_point < 0x80) {
    append(code_point);
    return true;
  }
  if (code_point < 0x800) {
    append(0xC0U | code_point >> 6U);
  } else {
    if (code_point < 0x10000) {
      append(0xE0U | code_point >> 12U);
    } else {
      append(0xF0U | code_point >> 18U);
      append(0x80U | (code_point >> 12U & 0x3FU));
    }
    append(0x80U | (code_point >> 6U & 0x3FU));
  }
  append(0x80U | (code_point & 0x3FU));
  return true;
}

std::size_t utf8Length(std::u16string_view units) {
  std::size_t length = 0;
  std::string character;
  forEachCharacter(units, [&](std::uint32_t code_point) {
    character.clear();
    appendUtf8(character, code_point);
    length += character.size();
  });
  return length;
}

void appendUtf8(std::string& text, std::u16string_view units) {
  forEachCharacter(units, [&](std::uint32_t code_point) { appendUtf8(text, code_point); });
}

}  // namespace vorlatch
