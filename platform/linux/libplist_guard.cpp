#include "platform/linux/libplist_guard.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/binary_property_list.h"
#include "platform/xml_scanner.h"

namespace vorlatch::platform {
namespace {

using plist::BinaryObject;
using plist::BinaryPropertyList;
using plist::XmlToken;

// The library moves the rest of a text forward at each entity in it, and compares a key with every
// other of its dictionary that has the same hash. Either bound is a second's work or less.
constexpr std::uint64_t kMaxBytesMoved = std::uint64_t{1} << 35U;
constexpr std::uint64_t kMaxKeysCompared = std::uint64_t{1} << 30U;

// Counts the keys of one dictionary after the other; the work grows with the square of each count.
class KeyBudget {
 public:
  bool spend(std::uint64_t keys) {
    constexpr std::uint64_t kMostOfOne = std::uint64_t{1} << 15U;  // its square is all there is
    if (keys > kMostOfOne) return false;
    compared_ += keys * keys;
    return compared_ <= kMaxKeysCompared;
  }

 private:
  std::uint64_t compared_ = 0;
};

bool isEasyBinary(std::string_view bytes) {
  const std::optional<BinaryPropertyList> list = BinaryPropertyList::open(bytes);
  if (!list) return false;
  KeyBudget budget;
  for (std::uint64_t i = 0; i < list->objectCount(); ++i) {
    const std::optional<BinaryObject> object = list->object(i);
    const bool is_dictionary = object && object->kind == BinaryObject::Kind::Dict;
    if (is_dictionary && !budget.spend(object->count)) return false;
  }
  return true;
}

bool isEasyXml(std::string_view bytes) {
  using Kind = XmlToken::Kind;
  plist::XmlScanner scanner(bytes);
  KeyBudget budget;
  std::uint64_t moved_bytes = 0;
  std::vector<std::uint64_t> keys_by_level;
  for (XmlToken token = scanner.next(); token.kind != Kind::End; token = scanner.next()) {
    if (token.kind == Kind::Malformed) return false;
    if (token.kind == Kind::Text) {
      const auto entities = std::count(token.content.begin(), token.content.end(), '&');
      moved_bytes += static_cast<std::uint64_t>(entities) * token.content.size();
      if (moved_bytes > kMaxBytesMoved) return false;
    } else if (token.kind == Kind::Open && token.content == "dict") {
      keys_by_level.push_back(0);
    } else if (token.kind == Kind::Open && token.content == "key" && !keys_by_level.empty()) {
      ++keys_by_level.back();
    } else if (token.kind == Kind::Close && token.content == "dict" && !keys_by_level.empty()) {
      if (!budget.spend(keys_by_level.back())) return false;
      keys_by_level.pop_back();
    }
  }
  // A dictionary without its end does not parse either.
  return keys_by_level.empty();
}

}  // namespace

bool isEasyForLibplist(std::string_view bytes) {
  return plist::isBinaryPropertyList(bytes) ? isEasyBinary(bytes) : isEasyXml(bytes);
}

}  // namespace vorlatch::platform
