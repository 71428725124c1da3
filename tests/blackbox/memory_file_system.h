// Small file systems of a test's own, apart from the machine's. Needs root with the right to mount.
#pragma once

#include <string>

namespace vorlatch {

// Leaves the machine's mounts for a copy of them, for the life of the process; fails the test when
// that is refused.
void leaveTheMachinesMounts();

// A file system in memory, there until the object goes.
class MemoryFileSystem {
 public:
  MemoryFileSystem(std::string directory, const char* options);
  MemoryFileSystem(const MemoryFileSystem&) = delete;
  MemoryFileSystem& operator=(const MemoryFileSystem&) = delete;
  ~MemoryFileSystem();

 private:
  const std::string directory_;
};

// Writes into a new file until nothing more goes in.
void fillUp(const std::string& path);

}  // namespace vorlatch
