// Counts the heap of the program that links this file, by replacing the C library's malloc. Cannot
// be used with the sanitizers, which replace malloc themselves.
#pragma once

#include <cstddef>

namespace vorlatch::tests {

// Bytes in use by all threads, with the C library's header of each block.
std::size_t heapBytes();

// The largest heapBytes() since the last call of restartHeapPeak().
std::size_t heapPeakBytes();
void restartHeapPeak();

}  // namespace vorlatch::tests
