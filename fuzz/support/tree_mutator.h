// Mutations of property lists as trees of values, beside libFuzzer's own of their bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorlatch::fuzz {

// Changes the input in place: mostly one or a few values of the tree that it stands for, and its
// bytes now and then or when it stands for none. Gives the new size, at most max_size.
std::size_t mutateTree(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed);

// Writes one tree with a piece of another in it; 0 when one of them stands for no tree, or the
// result does not fit.
std::size_t crossTrees(std::string_view bytes, std::string_view other, std::uint8_t* out,
                       std::size_t max_size, unsigned seed);

}  // namespace vorlatch::fuzz
