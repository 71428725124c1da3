// Small file systems of a test's own, apart from the machine's. Needs root with the right to mount.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "base/descriptor.h"

namespace vorlatch {

// Leaves the machine's mounts for a copy of them, for the life of the process; fails the test when
// that is refused.
inline void leaveTheMachinesMounts() {
  ASSERT_EQ(unshare(CLONE_NEWNS), 0) << std::strerror(errno);
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
}

// A file system in memory, there until the object goes.
class MemoryFileSystem {
 public:
  MemoryFileSystem(std::string directory, const char* options) : directory_(std::move(directory)) {
    EXPECT_EQ(mount("tmpfs", directory_.c_str(), "tmpfs", 0, options), 0) << std::strerror(errno);
  }
  MemoryFileSystem(const MemoryFileSystem&) = delete;
  MemoryFileSystem& operator=(const MemoryFileSystem&) = delete;
  ~MemoryFileSystem() { EXPECT_EQ(umount2(directory_.c_str(), MNT_DETACH), 0); }

 private:
  const std::string directory_;
};

// Writes into a new file until nothing more goes in.
inline void fillUp(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  const std::string block(1024, 'x');
  while (write(file.get(), block.data(), block.size()) > 0) {
  }
  EXPECT_EQ(errno, ENOSPC);
}

}  // namespace vorlatch
