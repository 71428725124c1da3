// Mutates property lists as trees of values, in addition to libFuzzer's mutations of bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorlatch::fuzz {

// Changes the input in place: usually one or a few values of its tree, and sometimes, or if it has
// no tree, its bytes. Returns the new size, at most max_size.
std::size_t mutateTree(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed);

// Writes one tree with a part of another in it. Returns the size, or 0 if an input has no tree or
// the result does not fit.
std::size_t crossTrees(std::string_view bytes, std::string_view other, std::uint8_t* out,
                       std::size_t max_size, unsigned seed);

}  // namespace vorlatch::fuzz
