// Binary property lists byte by byte, well-formed and not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorlatch::test {

inline std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i > 0; --i, number >>= 8U) {
    bytes[i - 1] = static_cast<char>(number & 0xFFU);
  }
  return bytes;
}

// Objects are given as stored, markers and all; the first one is the root.
struct BinaryBuilder {
  std::vector<std::string> objects;
  std::size_t reference_size = 1;
  std::size_t offset_size = 4;

  // A marker with its count, which follows as an integer when it does not fit.
  static std::string marker(unsigned type, std::uint64_t count) {
    if (count < 15) return {static_cast<char>(type << 4U | count)};
    return std::string{static_cast<char>(type << 4U | 0xFU), '\x13'} + bigEndian(count, 8);
  }

  static std::string ascii(std::string_view text) {
    return marker(0x5, text.size()) + std::string(text);
  }

  [[nodiscard]] std::string references(const std::vector<std::uint64_t>& indexes) const {
    std::string bytes;
    for (const std::uint64_t index : indexes) bytes += bigEndian(index, reference_size);
    return bytes;
  }

  [[nodiscard]] std::string array(const std::vector<std::uint64_t>& members) const {
    return marker(0xA, members.size()) + references(members);
  }

  [[nodiscard]] std::string dictionary(const std::vector<std::uint64_t>& keys,
                                       const std::vector<std::uint64_t>& values) const {
    return marker(0xD, keys.size()) + references(keys) + references(values);
  }

  [[nodiscard]] std::string build() const {
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
      offsets += bigEndian(bytes.size(), offset_size);
      bytes += object;
    }
    return bytes + offsets + trailer(bytes.size());
  }

  [[nodiscard]] std::string trailer(std::uint64_t offset_table) const {
    return std::string(6, '\0') + bigEndian(offset_size, 1) + bigEndian(reference_size, 1) +
           bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(offset_table, 8);
  }
};

}  // namespace vorlatch::test
