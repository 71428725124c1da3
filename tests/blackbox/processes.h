// Real programs that tests run, and what the machine says of a process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace vorlatch {

using Clock = std::chrono::steady_clock;

// How long anything may take before a test counts it as not happening. Generous: the machine may be
// busy and the daemon slowed down by a sanitizer.
inline constexpr std::chrono::seconds kPatience{60};

inline constexpr uid_t kNobody = 65534;

struct Launch {
  std::vector<std::string> arguments = {};
  std::map<std::string, std::string> environment = {};  // added to the test's own
  std::optional<uid_t> user = {};
  // What the program writes is kept for output(); otherwise it goes to /dev/null.
  bool gives_output = false;
};

// What a program wrote until it ended; status -1 when a signal ended it or it took too long.
struct Output {
  int status = -1;
  std::string out;
  std::string err;
  friend bool operator==(const Output&, const Output&) = default;
};
std::ostream& operator<<(std::ostream& stream, const Output& output);

// A child process. It is killed and reaped with the object, and by the kernel when the test process
// dies first.
class ChildProcess {
 public:
  // Comes back when the program runs under its own name; fails the test when it cannot be run.
  explicit ChildProcess(const std::string& executable, const Launch& launch = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() { kill(); }

  [[nodiscard]] pid_t pid() const { return pid_; }
  // Readable once the process has ended.
  [[nodiscard]] int endDescriptor() const { return end_.get(); }
  [[nodiscard]] bool hasEnded() const;

  // Kills and reaps it: its pid belongs to nobody.
  void kill();
  // Waits for its end and gives the exit code; -1 when it was killed or took too long.
  int exitCode();
  // Waits until the output so far holds the text; false when it ends without.
  [[nodiscard]] bool waitForOutput(const std::string& text) const;
  // Everything, once it has ended.
  Output output();

 private:
  const Descriptor out_;
  const Descriptor err_;
  const pid_t pid_;
  const Descriptor end_;
  bool reaped_ = false;
};

int niceOf(pid_t pid);
void setNice(pid_t pid, int value);

// Whether one of its descriptors is an inotify instance that watches something.
bool watchesSomething(pid_t pid);

// How often the threads of the process gave up the processor by themselves, all together.
std::int64_t voluntarySwitches(pid_t pid);

// What a process takes of the machine.
struct ResourceUse {
  std::vector<std::string> open_files;  // what each open descriptor leads to, sorted
  std::int64_t threads;
  // Heap, stacks and changed data. Of a program that was installed just now the kernel counts more
  // pages as the process's own: those that are not on the disk yet.
  std::int64_t anonymous_kb;
};

ResourceUse resourceUseOf(pid_t pid);

// Fails the test when it is more than before: the same files and threads, and memory of its own
// within the bound. A sanitizer's memory grows as it likes.
void expectNoMore(const ResourceUse& now, const ResourceUse& before, std::int64_t growth_max_kb);

}  // namespace vorlatch
