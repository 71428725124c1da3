#include "platform/linux/libplist_guard.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/binary_property_list.h"
#include "base/xml_scanner.h"

namespace vorlatch::platform {
namespace {

using plist::BinaryObject;
using plist::BinaryPropertyList;
using plist::XmlToken;

// Limit of the bytes that libplist moves to replace entities: a second's work or less.
constexpr std::uint64_t kMaxBytesMoved = std::uint64_t{1} << 33U;

bool isEasyXml(std::string_view bytes) {
  using Kind = XmlToken::Kind;
  plist::XmlScanner scanner(bytes);
  std::uint64_t moved_bytes = 0;
  for (XmlToken token = scanner.next(); token.kind != Kind::End; token = scanner.next()) {
    if (token.kind == Kind::Malformed) return false;
    if (token.kind != Kind::Text) continue;
    const auto entities = std::count(token.content.begin(), token.content.end(), '&');
    moved_bytes += static_cast<std::uint64_t>(entities) * token.content.size();
    if (moved_bytes > kMaxBytesMoved) return false;
  }
  return true;
}

// Visits the strings of a binary list and replaces what libplist reads wrongly.
class TextMender {
 public:
  TextMender(std::string_view bytes, const BinaryPropertyList& list, std::string& mended)
      : bytes_(bytes), list_(list), mended_(mended) {}

  // Returns false if the objects overlap so often that this would not take linear time.
  bool mend() {
    std::size_t left_bytes = 8 * bytes_.size();
    for (std::uint64_t i = 0; i < list_.objectCount(); ++i) {
      const std::optional<BinaryObject> object = list_.object(i);
      if (!object) continue;
      if (object->payload.size() > left_bytes) return false;
      left_bytes -= object->payload.size();
      if (object->kind == BinaryObject::Kind::AsciiString) mendAscii(object->payload);
      if (object->kind == BinaryObject::Kind::Utf16String) mendUtf16(object->payload);
    }
    return true;
  }

 private:
  void mendAscii(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (static_cast<unsigned char>(text[i]) > 127) replace(text, i, "?");
    }
  }

  void mendUtf16(std::string_view text) {
    const auto is_surrogate = [&text](std::size_t i, std::uint64_t first) {
      return i < text.size() && (plist::bigEndian(text.substr(i, 2)) & 0xFC00U) == first;
    };
    for (std::size_t i = 0; i < text.size(); i += 2) {
      if (is_surrogate(i, 0xD800) && is_surrogate(i + 2, 0xDC00)) {
        i += 2;
      } else if (is_surrogate(i, 0xD800) || is_surrogate(i, 0xDC00)) {
        replace(text, i, "\xFF\xFD");
      }
    }
  }

  void replace(std::string_view text, std::size_t at, std::string_view by) {
    if (mended_.empty()) mended_ = bytes_;
    const auto text_at = static_cast<std::size_t>(text.data() - bytes_.data());
    mended_.replace(text_at + at, by.size(), by);
  }

  const std::string_view bytes_;
  const BinaryPropertyList& list_;
  std::string& mended_;
};

// Returns true if no replacement changed another object, which is possible where objects overlap.
bool sameStructure(const BinaryPropertyList& a, const BinaryPropertyList& b) {
  for (std::uint64_t i = 0; i < a.objectCount(); ++i) {
    const std::optional<BinaryObject> before = a.object(i);
    const std::optional<BinaryObject> after = b.object(i);
    if (before.has_value() != after.has_value()) return false;
    if (!before) continue;
    if (before->kind != after->kind || before->payload.size() != after->payload.size())
      return false;
    if (before->count != 0 && before->payload != after->payload) return false;
  }
  return true;
}

}  // namespace

std::optional<std::string_view> easyForLibplist(std::string_view bytes, std::string& mended) {
  if (!plist::isBinaryPropertyList(bytes)) {
    return isEasyXml(bytes) ? std::optional(bytes) : std::nullopt;
  }
  const std::optional<BinaryPropertyList> list = BinaryPropertyList::open(bytes);
  if (!list || !TextMender(bytes, *list, mended).mend()) return std::nullopt;
  if (mended.empty()) return bytes;
  const std::optional<BinaryPropertyList> after = BinaryPropertyList::open(mended);
  if (!after || !sameStructure(*list, *after)) return std::nullopt;
  return mended;
}

}  // namespace vorlatch::platform
