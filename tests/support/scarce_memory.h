// Limits the process's memory during this object's lifetime, so that larger allocations fail.
// Useless with the sanitizers, which reserve terabytes of address space.
#pragma once

#include <sys/resource.h>

#include <gtest/gtest.h>

namespace vorlatch::tests {

class ScarceMemory {
 public:
  // `bytes` limits the whole address space; existing mappings stay.
  explicit ScarceMemory(rlim_t bytes) {
    EXPECT_EQ(getrlimit(RLIMIT_AS, &before_), 0);
    const rlimit little{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_AS, &little), 0);
  }
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
  ~ScarceMemory() { EXPECT_EQ(setrlimit(RLIMIT_AS, &before_), 0); }

 private:
  rlimit before_{};
};

}  // namespace vorlatch::tests
