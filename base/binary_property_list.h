// Decodes the objects of a binary property list. Portable; never reads outside the given bytes.
// Shared by the code that bounds a list and the code that repairs or reads it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vorlatch::plist {

// One object as stored in the file.
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
    Dict,         // a dictionary; payload: `count` references to keys, then `count` to values
  };
  Kind kind;
  std::string_view payload;
  std::uint64_t count;  // members of an array or entries of a dictionary; 0 otherwise
};

// Returns true if the bytes begin with the magic of a binary property list, of any version.
bool isBinaryPropertyList(std::string_view bytes);

// Returns the unsigned number that at most eight big-endian bytes hold.
std::uint64_t bigEndian(std::string_view bytes);

class BinaryPropertyList {
 public:
  // Returns std::nullopt if the trailer or the extent of the offset table is malformed, or if the
  // first digit of the version is not 0. The bytes must outlive the result and its objects.
  static std::optional<BinaryPropertyList> open(std::string_view bytes);

  [[nodiscard]] std::uint64_t objectCount() const { return object_count_; }
  [[nodiscard]] std::uint64_t rootIndex() const { return root_index_; }

  // Returns std::nullopt if the index, the object's offset or its extent is out of bounds, or if no
  // property list can hold an object of its type.
  [[nodiscard]] std::optional<BinaryObject> object(std::uint64_t index) const;

  // Returns the n-th reference in the payload of an array or dictionary: an object index, which may
  // be out of bounds. n must be below `count`, or below 2 * `count` for a dictionary.
  [[nodiscard]] std::uint64_t reference(const BinaryObject& object, std::uint64_t n) const;

 private:
  BinaryPropertyList() = default;

  [[nodiscard]] std::optional<BinaryObject> sized(std::uint8_t marker, std::string_view rest) const;

  std::string_view objects_;  // the file's bytes before the offset table
  std::string_view offset_table_;
  std::uint64_t object_count_ = 0;
  std::uint64_t root_index_ = 0;
  std::uint8_t offset_size_ = 1;
  std::uint8_t reference_size_ = 1;
};

}  // namespace vorlatch::plist
