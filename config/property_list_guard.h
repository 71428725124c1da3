// What a property list takes to read, counted before a parser sees its bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vorlatch {

struct PropertyListSize {
  std::size_t file_bytes = 0;
  // What its objects take on the heap at most, as measured. An object of a binary list counts as
  // often as it is referred to.
  std::size_t memory_bytes = 0;
  std::size_t levels = 0;  // of arrays and dictionaries

  // Whether no part of it is above the bound's.
  [[nodiscard]] bool isWithin(const PropertyListSize& bound) const {
    return file_bytes <= bound.file_bytes && memory_bytes <= bound.memory_bytes &&
           levels <= bound.levels;
  }
};

// What the daemon reads. launchd gives it a few megabytes, of which the settings that it holds and
// one file that it reads may take three; CoreFoundation of iOS reads 128 levels. 500 targets with
// remarks are within it.
inline constexpr PropertyListSize kPropertyListBound{
    .file_bytes = std::size_t{512} * 1024, .memory_bytes = 2'150'000, .levels = 128};

// Nothing for bytes that no parser is given, because they are damaged or parsers could differ over
// them: what is neither XML nor binary (text in the old style, UTF-16), XML that the scanner calls
// malformed, a binary key that is no text or holds a NUL. Counting stops where the bound is passed,
// so that it takes linear time and no memory; whatever gives a size may still not parse.
std::optional<PropertyListSize> measurePropertyList(std::string_view bytes);

}  // namespace vorlatch
