// What happens in a directory, as the kernel tells it: the events that the tests wait for.
#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tests/blackbox/processes.h"

namespace vorlatch {

// Watches the directory for the events; fails the test when that cannot be done.
Descriptor watchDirectory(const std::string& directory, std::uint32_t events);

// Takes the events that have come so far, each with its mask and the name of its file.
void takeEvents(const Descriptor& watch,
                const std::function<void(std::uint32_t mask, const std::string& name)>& take);

class DirectoryWatch {
 public:
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
  bool waitFor(const Descriptor& watch, Clock::time_point deadline, int process_end);
  void takeBoth();

  // Apart, so that a test can look into a file without waking itself.
  const Descriptor changes_;
  const Descriptor reads_;
  std::map<std::string, int> read_counts_;
  std::map<std::string, int> removal_counts_;
};

}  // namespace vorlatch
