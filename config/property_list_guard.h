// Bounds on property lists, checked before a parser sees the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorlatch {

// No settings come near these; a parser that recurses, or that repeats what an object refers to,
// stays within the memory and the stack of a daemon.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{128} * 1024 * 1024;
inline constexpr std::size_t kMaxPropertyListDepth = 512;

// Whether a parser may be given the bytes of a property list, be it XML, binary or old-style text:
// they are no larger than kMaxPropertyListBytes, arrays and dictionaries nest no deeper than
// kMaxPropertyListDepth, and a binary list does not refer to itself nor, with each object counted
// as often as it is referred to, expand beyond kMaxPropertyListBytes. False also for some bytes
// that would not parse; a true one says nothing about that. Takes linear time and no memory.
bool isBoundedPropertyList(std::string_view bytes);

}  // namespace vorlatch
