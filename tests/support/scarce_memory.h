// Little memory for as long as this lives: what would take more fails. Of no use under the
// sanitizers, which reserve terabytes of addresses for themselves.
#pragma once

#include <sys/resource.h>

#include <gtest/gtest.h>

namespace vorlatch::tests {

class ScarceMemory {
 public:
  // Of addresses, what the process may have in all. What it has already, it keeps.
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
