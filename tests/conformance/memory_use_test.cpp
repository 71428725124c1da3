#include "platform/memory_use.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

using platform::memoryOfMachine;
using platform::memoryOfProcess;
using platform::ProcessMemory;

constexpr std::uint64_t kTaken = 64'000'000;
constexpr std::uint64_t kElse = 8'000'000;  // what the rest of the test may take or return

ProcessMemory ownMemory() {
  return memoryOfProcess(getpid()).value_or(ProcessMemory{});
}

TEST(MemoryUse, FollowsWhatProcessTakes) {
  const ProcessMemory before = ownMemory();
  EXPECT_GT(before.footprint_bytes, 0);
  EXPECT_GE(before.peak_bytes, before.footprint_bytes);

  void* const taken =
      mmap(nullptr, kTaken, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(taken, MAP_FAILED);
  std::memset(taken, 1, kTaken);
  const ProcessMemory during = ownMemory();
  EXPECT_GE(during.footprint_bytes + kElse, before.footprint_bytes + kTaken);
  // The thread sanitizer takes more for its notes on each byte.
  EXPECT_LE(during.footprint_bytes, before.footprint_bytes + 4 * kTaken);
  EXPECT_GE(during.peak_bytes, during.footprint_bytes);

  munmap(taken, kTaken);
  const ProcessMemory after = ownMemory();
  EXPECT_LE(after.footprint_bytes, before.footprint_bytes + kElse);
  EXPECT_GE(after.peak_bytes + kElse, during.footprint_bytes);
}

TEST(MemoryUse, OfAnotherProcessUntilItEnds) {
  Process process("vl-memory");
  const auto memory = memoryOfProcess(process.pid());
  ASSERT_TRUE(memory.has_value());
  EXPECT_GT(memory->footprint_bytes, 0);
  EXPECT_GE(memory->peak_bytes, memory->footprint_bytes);
  process.end();
  errno = 0;
  EXPECT_FALSE(memoryOfProcess(process.pid()).has_value());
  EXPECT_EQ(errno, ESRCH);
}

TEST(MemoryUse, OfMachine) {
  const auto memory = memoryOfMachine();
  ASSERT_TRUE(memory.has_value());
  EXPECT_EQ(memory->total_bytes, static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                     static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  EXPECT_GT(memory->free_bytes, 0);
  EXPECT_LT(memory->free_bytes + memory->compressed_bytes, memory->total_bytes);
}

}  // namespace
}  // namespace vorlatch::conformance
