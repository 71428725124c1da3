#include "base/binary_property_list.h"

#include <cstddef>

namespace vorlatch::plist {
namespace {

constexpr std::string_view kMagic = "bplist";
constexpr std::string_view kVersionPrefix = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr std::uint8_t kMaxIntegerSize = 8;  // bytes per offset or reference

// The low half of a marker if the count follows as an integer object.
constexpr std::uint8_t kCountFollows = 0xF;
constexpr std::uint8_t kIntegerMarker = 0x1;

using Kind = BinaryObject::Kind;

bool isIntegerSize(std::uint8_t size) {
  return size >= 1 && size <= kMaxIntegerSize;
}

// Removes the leading count from `rest` and returns it; std::nullopt if it is malformed.
std::optional<std::uint64_t> takeCount(std::string_view& rest) {
  if (rest.empty()) return std::nullopt;
  const auto marker = static_cast<std::uint8_t>(rest.front());
  const unsigned exponent = marker & 0xFU;
  if (marker >> 4U != kIntegerMarker || exponent > 3) return std::nullopt;
  const std::size_t size = std::size_t{1} << exponent;
  if (rest.size() < 1 + size) return std::nullopt;
  const std::uint64_t count = bigEndian(rest.substr(1, size));
  rest.remove_prefix(1 + size);
  return count;
}

std::optional<BinaryObject> fixed(Kind kind, std::string_view rest, std::size_t size) {
  if (rest.size() < size) return std::nullopt;
  return BinaryObject{kind, rest.substr(0, size), 0};
}

std::optional<BinaryObject> number(Kind kind, std::uint8_t exponent, std::string_view rest) {
  return fixed(kind, rest, std::size_t{1} << exponent);
}

// Returns the first `count` elements, or std::nullopt if `rest` is too short.
std::optional<std::string_view> elements(std::string_view rest, std::uint64_t count,
                                         std::size_t element_size) {
  if (count > rest.size() / element_size) return std::nullopt;
  return rest.substr(0, static_cast<std::size_t>(count) * element_size);
}

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
  return bytes.starts_with(kMagic);
}

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char c : bytes) number = number << 8U | static_cast<std::uint8_t>(c);
  return number;
}

std::optional<BinaryPropertyList> BinaryPropertyList::open(std::string_view bytes) {
  if (!bytes.starts_with(kVersionPrefix) || bytes.size() < kHeaderSize + kTrailerSize) {
    return std::nullopt;
  }
  const std::string_view body = bytes.substr(0, bytes.size() - kTrailerSize);
  const std::string_view trailer = bytes.substr(body.size());
  BinaryPropertyList list;
  list.offset_size_ = static_cast<std::uint8_t>(trailer[6]);
  list.reference_size_ = static_cast<std::uint8_t>(trailer[7]);
  list.object_count_ = bigEndian(trailer.substr(8, 8));
  list.root_index_ = bigEndian(trailer.substr(16, 8));
  const std::uint64_t table = bigEndian(trailer.substr(24, 8));
  if (!isIntegerSize(list.offset_size_) || !isIntegerSize(list.reference_size_))
    return std::nullopt;
  if (table < kHeaderSize || table > body.size()) return std::nullopt;
  list.objects_ = body.substr(0, static_cast<std::size_t>(table));
  const auto offsets =
      elements(body.substr(list.objects_.size()), list.object_count_, list.offset_size_);
  if (!offsets) return std::nullopt;
  list.offset_table_ = *offsets;
  return list;
}

std::optional<BinaryObject> BinaryPropertyList::object(std::uint64_t index) const {
  if (index >= object_count_) return std::nullopt;
  const std::size_t at = static_cast<std::size_t>(index) * offset_size_;
  const std::uint64_t offset = bigEndian(offset_table_.substr(at, offset_size_));
  if (offset < kHeaderSize || offset >= objects_.size()) return std::nullopt;
  const std::string_view rest = objects_.substr(static_cast<std::size_t>(offset) + 1);
  const auto marker = static_cast<std::uint8_t>(objects_[static_cast<std::size_t>(offset)]);
  const auto low = static_cast<std::uint8_t>(marker & 0xFU);
  switch (marker >> 4U) {
    case 0x0:
      if (low == 0x8) return BinaryObject{Kind::False, {}, 0};
      if (low == 0x9) return BinaryObject{Kind::True, {}, 0};
      return std::nullopt;
    case kIntegerMarker:
      return low <= 4 ? number(Kind::Integer, low, rest) : std::nullopt;
    case 0x2:
      return low == 2 || low == 3 ? number(Kind::Real, low, rest) : std::nullopt;
    case 0x3:
      return low == 3 ? number(Kind::Date, low, rest) : std::nullopt;
    case 0x8:
      return low < kMaxIntegerSize ? fixed(Kind::Uid, rest, std::size_t{low} + 1) : std::nullopt;
    default:
      return sized(marker, rest);
  }
}

std::optional<BinaryObject> BinaryPropertyList::sized(std::uint8_t marker,
                                                      std::string_view rest) const {
  std::optional<std::uint64_t> count = marker & 0xFU;
  if (*count == kCountFollows) count = takeCount(rest);
  if (!count) return std::nullopt;
  BinaryObject object{Kind::Data, {}, 0};
  std::size_t element_size = 1;
  switch (marker >> 4U) {
    case 0x4:
      break;
    case 0x5:
      object.kind = Kind::AsciiString;
      break;
    case 0x6:
      object.kind = Kind::Utf16String;
      element_size = 2;
      break;
    case 0xA:
      object = {Kind::List, {}, *count};
      element_size = reference_size_;
      break;
    case 0xD:
      object = {Kind::Dict, {}, *count};
      element_size = std::size_t{2} * reference_size_;
      break;
    default:
      return std::nullopt;
  }
  const auto payload = elements(rest, *count, element_size);
  if (!payload) return std::nullopt;
  object.payload = *payload;
  return object;
}

std::uint64_t BinaryPropertyList::reference(const BinaryObject& object, std::uint64_t n) const {
  const std::size_t at = static_cast<std::size_t>(n) * reference_size_;
  return bigEndian(object.payload.substr(at, reference_size_));
}

}  // namespace vorlatch::plist
