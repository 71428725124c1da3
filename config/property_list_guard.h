// Measures what reading a property list would cost, before a parser sees its bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vorlatch {

struct PropertyListSize {
  std::size_t file_bytes = 0;
  // The most heap memory that its objects take, as measured. An object of a binary list counts once
  // per reference to it.
  std::size_t memory_bytes = 0;
  std::size_t levels = 0;  // nesting of arrays and dictionaries

  // Returns true if no member exceeds that of `bound`.
  [[nodiscard]] bool isWithin(const PropertyListSize& bound) const {
    return file_bytes <= bound.file_bytes && memory_bytes <= bound.memory_bytes &&
           levels <= bound.levels;
  }
};

// The largest property list that the daemon reads. launchd gives the daemon a few megabytes, of
// which its settings and one file being read may take three. CoreFoundation on iOS reads 128
// levels. A file with 500 targets and remarks is within the bound.
inline constexpr PropertyListSize kPropertyListBound{
    .file_bytes = std::size_t{512} * 1024, .memory_bytes = 2'150'000, .levels = 128};

// Returns std::nullopt for bytes that no parser may see, because they are damaged or parsers could
// read them differently: neither XML nor binary (old-style text, UTF-16), malformed XML, or a
// binary key that is not a string or holds a NUL. Takes linear time and no memory, because it stops
// counting beyond the bound. Bytes that have a size may still not parse.
std::optional<PropertyListSize> measurePropertyList(std::string_view bytes);

}  // namespace vorlatch
