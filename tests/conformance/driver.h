// What a platform lends the conformance suite: time, its main loop, and processes to look at. The
// suite is built once for each platform, with that platform's driver, and each case runs in a
// process of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace vorlatch::conformance {

// The uptime by which the platform's timers go.
std::uint64_t nowNs();

// Lets the platform's queues, timers and main loop run until `done` is true, at most for the time
// given, and gives what `done` says then. Called on the test's own thread. `done` reads what
// handlers write: it is called with the driver's lock held, and asked again after each changed().
// With virtual time `done` is also called after each work item, and time advances to what is due
// next, but not beyond the given time.
bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns);

// Makes a change that a `done` may be waiting for, with the driver's lock held. Called by handlers,
// on whatever thread they run.
void changed(const std::function<void()>& change);

// Lets time pass inside a work item, as slow work would: its queue runs nothing else meanwhile.
// Call it only inside work items and handlers.
void spendInside(std::uint64_t duration_ns);

// Runs the platform's runMainLoop(), so that notifications observed before are delivered while
// runUntil() runs. Called at most once.
void startMainLoop();

// A path, unlike every path given before, whose last component is the name, for startProcess().
std::string executablePath(const std::string& name);

// Starts a process of this executable, which idles, and gives its id, or 0 on failure. A missing
// executable is made. It is the newest process, and its name and path are in the process table when
// this returns.
int startProcess(const std::string& executable_path);

// Ends it. It is not in the process table any more when this returns, not as a zombie either.
void endProcess(int pid);

// A process that runs as long as the object lives.
class Process {
 public:
  explicit Process(const std::string& name)
      : path_(name.starts_with('/') ? name : executablePath(name)) {
    EXPECT_GT(pid_ = startProcess(path_), 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process() { end(); }
  void end() {
    if (!ended_ && pid_ > 0) endProcess(pid_);
    ended_ = true;
  }
  [[nodiscard]] int pid() const { return pid_; }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  const std::string path_;
  int pid_ = 0;
  bool ended_ = false;
};

}  // namespace vorlatch::conformance
