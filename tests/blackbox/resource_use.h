// What a process takes of the machine.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch {

struct ResourceUse {
  std::vector<std::string> open_files;
  std::int64_t threads;
  // Heap, stacks and changed data. Of a program that was installed just now the kernel counts more
  // pages as the process's own: those that are not on the disk yet.
  std::int64_t anonymous_kb;
  std::int64_t pss_kb;  // shrinks and grows with other processes' use of the same libraries
};

ResourceUse resourceUseOf(pid_t pid);

// Fails the test when it is more than before: the same files and threads, and memory of its own
// within the bound. A sanitizer's memory grows as it likes.
void expectNoMore(const ResourceUse& now, const ResourceUse& before, std::int64_t growth_max_kb);

}  // namespace vorlatch
