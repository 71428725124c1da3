// Real programs run by the tests, and what the machine says of a process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorlatch {

using Clock = std::chrono::steady_clock;

// How long anything may take before a test counts it as not happening. Generous: the machine may be
// busy and the daemon slowed down by a sanitizer.
inline constexpr std::chrono::seconds kPatience{60};

inline constexpr uid_t kNobody = 65534;

struct Launch {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // added to the test's own
  std::optional<uid_t> user;
  std::optional<mode_t> umask;
  // The program's /proc shows the process namespace that it runs in, not the test's.
  bool sees_own_process_table = false;
};

// A file descriptor that closes itself; below zero it holds nothing.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();
  [[nodiscard]] int number() const { return number_; }

 private:
  const int number_;
};

// The milliseconds until then, as poll takes them; 0 when it has passed.
int millisecondsUntil(Clock::time_point deadline);

// A child with its standard streams on /dev/null. It is killed and reaped with the object, and by
// the kernel when the test process dies first.
class ChildProcess {
 public:
  // Comes back when the program runs under its own name; fails the test when it cannot be run.
  explicit ChildProcess(const std::string& executable, const Launch& launch = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  [[nodiscard]] pid_t pid() const { return pid_; }
  // Readable once the process has ended.
  [[nodiscard]] int endDescriptor() const { return end_.number(); }
  [[nodiscard]] bool hasEnded() const;

  // Kills and reaps it: its pid belongs to nobody.
  void kill();
  // Waits for its end and gives the exit code; -1 when it was killed or took too long.
  int exitCode();

 private:
  const pid_t pid_;
  const Descriptor end_;
  bool reaped_ = false;
};

int niceOf(pid_t pid);
void setNice(pid_t pid, int value);

// What each open descriptor of the process leads to, sorted.
std::vector<std::string> openFiles(pid_t pid);

// Whether one of its descriptors is an inotify instance that watches something.
bool watchesSomething(pid_t pid);

// The number behind a label of a file of the process under /proc, as "Pss:" of "smaps_rollup" or
// "Threads:" of "status"; -1 when there is none.
std::int64_t procNumber(pid_t pid, const std::string& file, const std::string& label);

// The id by which the processes of its own namespace know the process.
pid_t pidInItsTable(pid_t pid);

// How often the threads of the process gave up the processor by themselves, all together.
std::int64_t voluntarySwitches(pid_t pid);

}  // namespace vorlatch
