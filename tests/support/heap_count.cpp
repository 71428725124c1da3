#include "tests/support/heap_count.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#define VORLATCH_SYMBOL(name) __asm__(name)

namespace vorlatch::tests {

// The C library's functions (glibc 2.36, malloc/malloc.c), and the counting ones that replace them.
void* realMalloc(std::size_t size) VORLATCH_SYMBOL("__libc_malloc");
void* realCalloc(std::size_t count, std::size_t size) VORLATCH_SYMBOL("__libc_calloc");
void* realRealloc(void* block, std::size_t size) VORLATCH_SYMBOL("__libc_realloc");
void* realMemalign(std::size_t alignment, std::size_t size) VORLATCH_SYMBOL("__libc_memalign");
void realFree(void* block) VORLATCH_SYMBOL("__libc_free");
void* countedMalloc(std::size_t size) VORLATCH_SYMBOL("malloc");
void* countedCalloc(std::size_t count, std::size_t size) VORLATCH_SYMBOL("calloc");
void* countedRealloc(void* block, std::size_t size) VORLATCH_SYMBOL("realloc");
void* countedMemalign(std::size_t alignment, std::size_t size) VORLATCH_SYMBOL("memalign");
void* countedAlignedAlloc(std::size_t alignment, std::size_t size) VORLATCH_SYMBOL("aligned_alloc");
int countedPosixMemalign(void** block, std::size_t alignment, std::size_t size)
    VORLATCH_SYMBOL("posix_memalign");
void countedFree(void* block) VORLATCH_SYMBOL("free");

namespace {

// The size of the header that the C library keeps in front of a block.
constexpr std::size_t kHeaderBytes = sizeof(std::size_t);

std::atomic<std::size_t> in_use_bytes = 0;
std::atomic<std::size_t> peak_bytes = 0;

std::size_t sizeOf(void* block) {
  return block == nullptr ? 0 : malloc_usable_size(block) + kHeaderBytes;
}

void* counted(void* block) {
  const std::size_t now = in_use_bytes += sizeOf(block);
  std::size_t peak = peak_bytes;
  while (now > peak && !peak_bytes.compare_exchange_weak(peak, now)) {
  }
  return block;
}

}  // namespace

void* countedMalloc(std::size_t size) {
  return counted(realMalloc(size));
}

void* countedCalloc(std::size_t count, std::size_t size) {
  return counted(realCalloc(count, size));
}

void* countedRealloc(void* block, std::size_t size) {
  const std::size_t before_bytes = sizeOf(block);
  void* const moved = realRealloc(block, size);
  if (moved != nullptr || size == 0) in_use_bytes -= before_bytes;
  return counted(moved);
}

void* countedMemalign(std::size_t alignment, std::size_t size) {
  return counted(realMemalign(alignment, size));
}

void* countedAlignedAlloc(std::size_t alignment, std::size_t size) {
  return countedMemalign(alignment, size);
}

int countedPosixMemalign(void** block, std::size_t alignment, std::size_t size) {
  *block = countedMemalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

void countedFree(void* block) {
  in_use_bytes -= sizeOf(block);
  realFree(block);
}

std::size_t heapBytes() {
  return in_use_bytes;
}

std::size_t heapPeakBytes() {
  return peak_bytes;
}

void restartHeapPeak() {
  peak_bytes = in_use_bytes.load();
}

}  // namespace vorlatch::tests
