#include "platform/darwin/cf_text.h"

#include <algorithm>
#include <array>

#include "base/utf8.h"

namespace vorlatch::platform {

namespace {

constexpr CFIndex kPieceUnits = 1024;

// Calls `visit` with pieces of the text, because it may be long. No piece splits a character.
template <typename Visit>
void forEachPiece(CFStringRef text, Visit visit) {
  std::array<char16_t, kPieceUnits> units{};
  const CFIndex length = CFStringGetLength(text);
  for (CFIndex at = 0; at < length;) {
    CFIndex count = std::min(kPieceUnits, length - at);
    CFStringGetCharacters(text, CFRangeMake(at, count), reinterpret_cast<UniChar*>(units.data()));
    const bool is_split = (units[static_cast<std::size_t>(count - 1)] & 0xFC00U) == 0xD800U;
    if (is_split && at + count < length && count > 1) --count;
    visit(std::u16string_view(units.data(), static_cast<std::size_t>(count)));
    at += count;
  }
}

}  // namespace

// CoreFoundation's own conversion fails at a lone surrogate, even with a loss byte
// (swift-corelibs-foundation, CFString.c, CFStringCreateExternalRepresentation).
std::string utf8Of(CFStringRef text) {
  std::size_t length = 0;
  forEachPiece(text, [&](std::u16string_view units) { length += utf8Length(units); });
  std::string utf8;
  utf8.reserve(length);
  forEachPiece(text, [&](std::u16string_view units) { appendUtf8(utf8, units); });
  return utf8;
}

CFOwned<CFStringRef> cfStringOf(std::string_view utf8) {
  return CFOwned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                              static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/0));
}

}  // namespace vorlatch::platform
