#include "config/property_list_guard.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

#include "platform/binary_property_list.h"
#include "platform/xml_scanner.h"

namespace vorlatch {
namespace {

using plist::bigEndian;
using plist::BinaryObject;
using plist::BinaryPropertyList;
using plist::XmlScanner;
using plist::XmlToken;

// What an object is counted as beside its payload. An object's marker, its offset and the reference
// to it take about as much in a file large enough for the bound to matter.
constexpr std::uint64_t kObjectBytes = 8;

bool isContainer(const BinaryObject& object) {
  return object.kind == BinaryObject::Kind::List || object.kind == BinaryObject::Kind::Dict;
}

// Visits every object as often as it is referred to. No memory of the visited is needed: each visit
// counts, so their number is bounded, and a list that refers to itself runs into the depth.
class BinaryExpansion {
 public:
  explicit BinaryExpansion(const BinaryPropertyList& list) : list_(list) {}

  bool isBounded() {
    if (!enter(list_.rootIndex())) return false;
    while (depth_ > 0) {
      Level& level = levels_[depth_ - 1];
      if (level.next == level.end) {
        --depth_;
      } else {
        const bool is_key =
            level.container.kind == BinaryObject::Kind::Dict && level.next < level.container.count;
        const std::uint64_t index = list_.reference(level.container, level.next++);
        if ((is_key && !isKey(index)) || !enter(index)) return false;
      }
    }
    return true;
  }

 private:
  struct Level {
    BinaryObject container{};
    std::uint64_t next = 0;
    std::uint64_t end = 0;
  };

  // Only a string is one. Libraries written in C stop at a NUL in it, or stop the program.
  [[nodiscard]] bool isKey(std::uint64_t index) const {
    const std::optional<BinaryObject> object = list_.object(index);
    if (!object) return false;
    if (object->kind == BinaryObject::Kind::AsciiString) {
      return object->payload.find('\0') == object->payload.npos;
    }
    if (object->kind != BinaryObject::Kind::Utf16String) return false;
    for (std::size_t i = 0; i < object->payload.size(); i += 2) {
      if (bigEndian(object->payload.substr(i, 2)) == 0) return false;
    }
    return true;
  }

  bool enter(std::uint64_t index) {
    const std::optional<BinaryObject> object = list_.object(index);
    if (!object) return false;
    const bool container = isContainer(*object);
    expanded_bytes_ += kObjectBytes + (container ? 0 : object->payload.size());
    if (expanded_bytes_ > kMaxPropertyListBytes) return false;
    if (!container) return true;
    if (depth_ == levels_.size()) return false;
    const bool dictionary = object->kind == BinaryObject::Kind::Dict;
    levels_[depth_++] = {*object, 0, dictionary ? 2 * object->count : object->count};
    return true;
  }

  const BinaryPropertyList& list_;
  std::array<Level, kMaxPropertyListDepth> levels_{};
  std::size_t depth_ = 0;
  std::uint64_t expanded_bytes_ = 0;
};

bool isBoundedBinary(std::string_view bytes) {
  const std::optional<BinaryPropertyList> list = BinaryPropertyList::open(bytes);
  return list && BinaryExpansion(*list).isBounded();
}

// A scalar's element holds no other. Whatever is not known to be one counts as a level.
bool isLevel(std::string_view name) {
  constexpr std::array<std::string_view, 8> kScalars = {"key",  "string", "integer", "real",
                                                        "date", "data",   "true",    "false"};
  return std::find(kScalars.begin(), kScalars.end(), name) == kScalars.end();
}

bool isBoundedXml(std::string_view bytes) {
  XmlScanner scanner(bytes);
  std::size_t depth = 0;
  // The plist element around everything is not a level of the list.
  std::size_t max_depth = kMaxPropertyListDepth;
  for (XmlToken token = scanner.next(); token.kind != XmlToken::Kind::End; token = scanner.next()) {
    if (token.kind == XmlToken::Kind::Malformed) return false;
    if (token.kind == XmlToken::Kind::Open && isLevel(token.content)) {
      if (depth == 0 && token.content == "plist") max_depth = kMaxPropertyListDepth + 1;
      if (++depth > max_depth) return false;
    } else if (token.kind == XmlToken::Kind::Close && isLevel(token.content) && depth > 0) {
      --depth;
    }
  }
  return true;
}

bool isBareWord(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
         std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

// The length of a quoted text with both its quotes; of the rest where the second one is missing.
std::size_t quotedLength(std::string_view text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == text[0]) return i + 1;
    if (text[i] == '\\') ++i;
  }
  return text.size();
}

// The length of what stands first in a text list: a comment, a text, or one character. Brackets in
// the first two are none, and a comment's slashes inside a bare word are part of the word.
std::size_t firstLength(std::string_view text) {
  if (text.starts_with("//")) return std::min(text.find_first_of("\r\n"), text.size());
  if (text.starts_with("/*")) {
    const std::size_t end = text.find("*/", 2);
    return end == text.npos ? text.size() : end + 2;
  }
  if (text[0] == '"' || text[0] == '\'') return quotedLength(text);
  const auto* const word_end = std::find_if_not(text.begin(), text.end(), isBareWord);
  return std::max<std::size_t>(1, static_cast<std::size_t>(word_end - text.begin()));
}

// A list in the text form of old, ( a, { b = c; } ), which the device's parser takes too. Wider
// encodings, in which a bracket has a NUL beside it, are not looked into.
bool isBoundedText(std::string_view bytes) {
  if (bytes.find('\0') != bytes.npos) return false;
  std::size_t depth = 0;
  while (!bytes.empty()) {
    if (bytes[0] == '(' || bytes[0] == '{') {
      if (++depth > kMaxPropertyListDepth) return false;
    } else if ((bytes[0] == ')' || bytes[0] == '}') && depth > 0) {
      --depth;
    }
    bytes.remove_prefix(firstLength(bytes));
  }
  return true;
}

// Parsers differ in what they take for blanks in front; no text list begins with any of it.
bool looksLikeXml(std::string_view bytes) {
  const auto* const first =
      std::find_if(bytes.begin(), bytes.end(), [](char c) { return c > ' ' && c <= '~'; });
  return first != bytes.end() && *first == '<';
}

}  // namespace

bool isBoundedPropertyList(std::string_view bytes) {
  if (bytes.size() > kMaxPropertyListBytes) return false;
  if (plist::isBinaryPropertyList(bytes)) return isBoundedBinary(bytes);
  return looksLikeXml(bytes) ? isBoundedXml(bytes) : isBoundedText(bytes);
}

}  // namespace vorlatch
