#include "config/property_list_guard.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/binary_property_list.h"
#include "base/xml_scanner.h"

namespace vorlatch {
namespace {

using plist::bigEndian;
using plist::BinaryObject;
using plist::BinaryPropertyList;
using plist::XmlScanner;
using plist::XmlToken;

// The most memory that one object takes: in the library's tree, in our values, and in what the
// daemon keeps of a target. Measured with libplist 2.2.0 on a 64-bit machine
// (benchmarks/heap_benchmark, tests/scenario/heap_test).
constexpr std::size_t kScalarBytes = 190;
constexpr std::size_t kKeyBytes = 240;
constexpr std::size_t kContainerBytes = 450;
// Cost of each byte of a key after the first 16: the daemon keeps a target's key in several places.
constexpr std::size_t kShortKeyBytes = 16;
constexpr std::size_t kKeyByteBytes = 10;
// Each byte of a string is held three times: in the file's bytes, the library's tree and our
// values.
constexpr std::size_t kTextByteBytes = 3;

// Cost per comment or CDATA section: libplist stores each as a separate part of the text.
constexpr std::size_t kTextPartBytes = 60;

// Adds up the size of a list; callers stop when isOver() returns true.
class Measure {
 public:
  explicit Measure(std::size_t file_bytes)
      : size_{.file_bytes = file_bytes, .memory_bytes = file_bytes, .levels = 0} {}

  void addScalar(std::size_t bytes) { size_.memory_bytes += kScalarBytes + kTextByteBytes * bytes; }
  void addKey(std::size_t bytes) {
    const std::size_t further_bytes = std::max(bytes, kShortKeyBytes) - kShortKeyBytes;
    size_.memory_bytes += kKeyBytes + kKeyByteBytes * further_bytes;
  }
  void addTextParts(std::size_t count) { size_.memory_bytes += kTextPartBytes * count; }
  void addContainer(std::size_t level) {
    size_.memory_bytes += kContainerBytes;
    size_.levels = std::max(size_.levels, level);
  }
  [[nodiscard]] bool isOver() const { return !size_.isWithin(kPropertyListBound); }
  [[nodiscard]] const PropertyListSize& size() const { return size_; }

 private:
  PropertyListSize size_;
};

// Returns an upper limit of the length in UTF-8: three bytes per UTF-16 unit.
std::size_t utf8Bytes(const BinaryObject& object) {
  const bool is_wide = object.kind == BinaryObject::Kind::Utf16String;
  return is_wide ? object.payload.size() / 2 * 3 : object.payload.size();
}

// Visits every object once per reference to it. It need not remember visited objects: every visit
// adds to the size, which bounds the visits, and a list that contains itself is soon too deep.
class BinaryWalk {
 public:
  BinaryWalk(const BinaryPropertyList& list, Measure& measure) : list_(list), measure_(measure) {}

  // Returns false if the list is damaged.
  bool measure() {
    if (!enter(list_.rootIndex())) return false;
    while (depth_ > 0 && !measure_.isOver()) {
      Level& level = levels_[depth_ - 1];
      if (level.next == level.end) {
        --depth_;
        continue;
      }
      const bool is_key =
          level.container.kind == BinaryObject::Kind::Dict && level.next < level.container.count;
      const std::uint64_t index = list_.reference(level.container, level.next++);
      if (is_key ? !addKey(index) : !enter(index)) return false;
    }
    return true;
  }

 private:
  struct Level {
    BinaryObject container{};
    std::uint64_t next = 0;
    std::uint64_t end = 0;
  };

  // Returns false unless the key is a string without NUL: C libraries stop or crash at a NUL.
  bool addKey(std::uint64_t index) {
    const std::optional<BinaryObject> object = list_.object(index);
    if (!object) return false;
    const bool is_wide = object->kind == BinaryObject::Kind::Utf16String;
    if (!is_wide && object->kind != BinaryObject::Kind::AsciiString) return false;
    const std::size_t unit_bytes = is_wide ? 2 : 1;
    for (std::size_t i = 0; i < object->payload.size(); i += unit_bytes) {
      if (bigEndian(object->payload.substr(i, unit_bytes)) == 0) return false;
    }
    measure_.addKey(utf8Bytes(*object));
    return true;
  }

  bool enter(std::uint64_t index) {
    const std::optional<BinaryObject> object = list_.object(index);
    if (!object) return false;
    const bool is_dictionary = object->kind == BinaryObject::Kind::Dict;
    if (!is_dictionary && object->kind != BinaryObject::Kind::List) {
      measure_.addScalar(utf8Bytes(*object));
      return true;
    }
    measure_.addContainer(depth_ + 1);
    if (measure_.isOver()) return true;
    levels_[depth_++] = {*object, 0, is_dictionary ? 2 * object->count : object->count};
    return true;
  }

  const BinaryPropertyList& list_;
  Measure& measure_;
  std::array<Level, kPropertyListBound.levels> levels_{};
  std::size_t depth_ = 0;
};

bool measureBinary(std::string_view bytes, Measure& measure) {
  const std::optional<BinaryPropertyList> list = BinaryPropertyList::open(bytes);
  return list && BinaryWalk(*list, measure).measure();
}

// Returns true for a known scalar. Any other element counts as a container.
bool isScalar(std::string_view name) {
  constexpr std::array<std::string_view, 7> kScalars = {"string", "integer", "real", "date",
                                                        "data",   "true",    "false"};
  return std::find(kScalars.begin(), kScalars.end(), name) != kScalars.end();
}

std::size_t countOf(std::string_view what, std::string_view bytes) {
  std::size_t count = 0;
  for (std::size_t at = bytes.find(what); at != bytes.npos; at = bytes.find(what, at + 1)) ++count;
  return count;
}

void add(std::string_view element, std::size_t text_bytes, Measure& measure) {
  element == "key" ? measure.addKey(text_bytes) : measure.addScalar(text_bytes);
}

bool measureXml(std::string_view bytes, Measure& measure) {
  using Kind = XmlToken::Kind;
  measure.addTextParts(countOf("<!", bytes));
  XmlScanner scanner(bytes);
  std::size_t depth = 0;
  bool is_in_plist = false;  // <plist> is the outermost element; it is no level
  std::size_t text_bytes = 0;
  while (!measure.isOver()) {
    const XmlToken token = scanner.next();
    const bool opens = token.kind == Kind::Open || token.kind == Kind::Empty;
    if (token.kind == Kind::End) return true;
    if (token.kind == Kind::Malformed) return false;
    if (token.kind == Kind::Text || token.kind == Kind::CData) {
      text_bytes += token.content.size();
    } else if (isScalar(token.content) || token.content == "key") {
      // Does not count text between elements: it is blanks, which no parser keeps.
      if (token.kind == Kind::Close) add(token.content, text_bytes, measure);
      if (token.kind == Kind::Empty) add(token.content, 0, measure);
      text_bytes = 0;
    } else if (opens) {
      if (depth == 0) is_in_plist = token.content == "plist";
      measure.addContainer(depth + (is_in_plist ? 0 : 1));
      if (token.kind == Kind::Open) ++depth;
    } else if (depth > 0) {
      --depth;
    }
  }
  return true;
}

// Returns true if '<' is the first printable character; parsers differ in what may precede it.
bool looksLikeXml(std::string_view bytes) {
  const auto* const first =
      std::find_if(bytes.begin(), bytes.end(), [](char c) { return c > ' ' && c <= '~'; });
  return first != bytes.end() && *first == '<';
}

}  // namespace

std::optional<PropertyListSize> measurePropertyList(std::string_view bytes) {
  Measure measure(bytes.size());
  if (measure.isOver()) return measure.size();
  const bool is_binary = plist::isBinaryPropertyList(bytes);
  if (!is_binary && !looksLikeXml(bytes)) return std::nullopt;
  const bool is_whole = is_binary ? measureBinary(bytes, measure) : measureXml(bytes, measure);
  return is_whole ? std::optional(measure.size()) : std::nullopt;
}

}  // namespace vorlatch
