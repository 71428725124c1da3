// The objects of a binary property list. Portable: it tells what stands in the bytes, for whoever
// bounds them and for whoever reads them, and never reads outside them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vorlatch::plist {

// One object as it is stored.
struct BinaryObject {
  enum class Kind : std::uint8_t {
    False,
    True,
    Integer,      // payload: 1, 2, 4, 8 or 16 bytes
    Real,         // payload: 4 or 8 bytes
    Date,         // payload: 8 bytes, a real
    Data,         // payload: the bytes
    AsciiString,  // payload: the characters
    Utf16String,  // payload: the code units, big-endian
    Uid,          // payload: 1 to 8 bytes
    List,         // an array; payload: `count` references
    Dict,         // a dictionary; payload: `count` references to keys, then as many to values
  };
  Kind kind;
  std::string_view payload;
  std::uint64_t count;  // of the members of an array or dictionary, 0 otherwise
};

// Whether the bytes claim to be a binary property list, of whatever version.
bool isBinaryPropertyList(std::string_view bytes);

// The number that at most eight big-endian bytes stand for.
std::uint64_t bigEndian(std::string_view bytes);

class BinaryPropertyList {
 public:
  // Nothing when the trailer or the extent of the offset table is malformed, or the version is not
  // one of "0x". The bytes must outlive the result and its objects.
  static std::optional<BinaryPropertyList> open(std::string_view bytes);

  [[nodiscard]] std::uint64_t objectCount() const { return object_count_; }
  [[nodiscard]] std::uint64_t rootIndex() const { return root_index_; }

  // Nothing when the index, the object's place or its extent is out of bounds, or it is of a type
  // that no property list holds.
  [[nodiscard]] std::optional<BinaryObject> object(std::uint64_t index) const;

  // The n-th reference of an array's or dictionary's payload, an object's index that may be out of
  // bounds; n is below `count`, or below twice `count` for a dictionary.
  [[nodiscard]] std::uint64_t reference(const BinaryObject& object, std::uint64_t n) const;

 private:
  BinaryPropertyList() = default;

  [[nodiscard]] std::optional<BinaryObject> sized(std::uint8_t marker, std::string_view rest) const;

  std::string_view objects_;  // everything in front of the offset table, from the file's first byte
  std::string_view offset_table_;
  std::uint64_t object_count_ = 0;
  std::uint64_t root_index_ = 0;
  std::uint8_t offset_size_ = 1;
  std::uint8_t reference_size_ = 1;
};

}  // namespace vorlatch::plist
