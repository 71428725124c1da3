// Counts the heap of the program that this is linked into: its own malloc in front of the C
// library's. Not with the sanitizers, which bring theirs.
#pragma once

#include <cstddef>

namespace vorlatch::tests {

// Bytes in use now, each block with what the C library keeps beside it, in all threads.
std::size_t heapBytes();

// The most that were in use since the last call of restartHeapPeak().
std::size_t heapPeakBytes();
void restartHeapPeak();

}  // namespace vorlatch::tests
