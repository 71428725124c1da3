#include "tests/blackbox/memory_file_system.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>

#include "tests/blackbox/processes.h"

namespace vorlatch {

void leaveTheMachinesMounts() {
  ASSERT_EQ(unshare(CLONE_NEWNS), 0) << std::strerror(errno);
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
}

MemoryFileSystem::MemoryFileSystem(std::string directory, const char* options)
    : directory_(std::move(directory)) {
  EXPECT_EQ(mount("tmpfs", directory_.c_str(), "tmpfs", 0, options), 0) << std::strerror(errno);
}

MemoryFileSystem::~MemoryFileSystem() {
  EXPECT_EQ(umount2(directory_.c_str(), MNT_DETACH), 0);
}

void fillUp(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  const std::string block(1024, 'x');
  while (write(file.number(), block.data(), block.size()) > 0) {
  }
  EXPECT_EQ(errno, ENOSPC);
}

}  // namespace vorlatch
