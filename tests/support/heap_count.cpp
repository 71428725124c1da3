#include "tests/support/heap_count.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

// The C library's own functions (glibc 2.36, malloc/malloc.c).
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

// What the C library keeps in front of a block.
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

extern "C" {

void* malloc(std::size_t size) {
  return counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
  return counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
  const std::size_t before_bytes = sizeOf(block);
  void* const moved = __libc_realloc(block, size);
  if (moved != nullptr || size == 0) in_use_bytes -= before_bytes;
  return counted(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

void free(void* block) {
  in_use_bytes -= sizeOf(block);
  __libc_free(block);
}

}  // extern "C"

namespace vorlatch::tests {

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
