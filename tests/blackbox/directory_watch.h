// What happens in a directory, as the kernel tells it: the events that the tests wait for.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/blackbox/processes.h"

namespace vorlatch {

class DirectoryWatch {
 public:
  // Fails the test when the directory cannot be watched.
  explicit DirectoryWatch(const std::string& directory);

  // Waits until a file there is changed, made, moved or removed; false when the deadline came first
  // or the process has ended. `process_end` is readable then; below zero, no process counts.
  bool waitForChange(Clock::time_point deadline, int process_end);

  // Likewise until a file there is read; a test that waits so does not read any itself.
  bool waitForRead(Clock::time_point deadline, int process_end);

  // Whether nothing at all happens for that long.
  bool staysQuietFor(std::chrono::milliseconds duration);

  // How often the file has been read through and closed so far.
  int readsOf(const std::string& name);
  // How often a file whose name begins so has been removed so far.
  int removalsOf(const std::string& prefix);

 private:
  using Counts = std::map<std::string, int>;  // by file name
  static void drain(const Descriptor& instance, std::uint32_t counted, Counts& counts);
  void drainBoth();

  // Apart, so that a test can look into a file without waking itself.
  const Descriptor changes_;
  const Descriptor reads_;
  Counts read_counts_;
  Counts removal_counts_;
};

}  // namespace vorlatch
