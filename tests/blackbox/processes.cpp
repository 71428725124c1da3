#include "tests/blackbox/processes.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

bool becomeUser(uid_t user) {
  return setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
}

// Nothing is passed on: what the test itself has open is not the program's.
bool leaveOnlyStandardStreams() {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (dup2(nothing, stream) < 0) return false;
  }
  return close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
}

bool seeOwnProcessTable() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0;
}

// In the child, up to the program; comes back only when it cannot be run.
void become(const std::string& executable, const Launch& launch) {
  if (launch.umask) ::umask(*launch.umask);
  // Whatever nice value the test itself was started with.
  setpriority(PRIO_PROCESS, 0, 0);
  if (launch.sees_own_process_table && !seeOwnProcessTable()) return;
  if (launch.user && !becomeUser(*launch.user)) return;
  // After the change of the user, which would undo it.
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || !leaveOnlyStandardStreams()) return;
  for (const auto& [name, value] : launch.environment) setenv(name.c_str(), value.c_str(), 1);
  std::string program = executable;
  std::vector<std::string> arguments = launch.arguments;
  std::vector<char*> argv{program.data()};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
}

pid_t startChild(const std::string& executable, const Launch& launch) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reading(ends[0]);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    become(executable, launch);
    const int error = errno;
    if (getppid() == parent && write(ends[1], &error, sizeof(error)) < 0) _exit(126);
    _exit(127);
  }
  close(ends[1]);
  // The program closes the pipe by running.
  int error = 0;
  EXPECT_EQ(read(reading.number(), &error, sizeof(error)), 0)
      << executable << ": " << std::strerror(error);
  return pid;
}

// As the system call: the C library's function is not declared for C++ everywhere.
int openEnd(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max(0, static_cast<int>(left.count()));
}

ChildProcess::ChildProcess(const std::string& executable, const Launch& launch)
    : pid_(startChild(executable, launch)), end_(openEnd(pid_)) {
  EXPECT_GE(end_.number(), 0);
}

ChildProcess::~ChildProcess() {
  kill();
}

bool ChildProcess::hasEnded() const {
  pollfd end{.fd = end_.number(), .events = POLLIN, .revents = 0};
  return poll(&end, 1, 0) == 1;
}

void ChildProcess::kill() {
  if (reaped_) return;
  ::kill(pid_, SIGKILL);
  EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
  reaped_ = true;
}

int ChildProcess::exitCode() {
  pollfd end{.fd = end_.number(), .events = POLLIN, .revents = 0};
  if (poll(&end, 1, millisecondsUntil(Clock::now() + kPatience)) != 1) return -1;
  int status = 0;
  EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
  reaped_ = true;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int niceOf(pid_t pid) {
  errno = 0;
  const int value = getpriority(PRIO_PROCESS, static_cast<id_t>(pid));
  EXPECT_EQ(errno, 0);
  return value;
}

void setNice(pid_t pid, int value) {
  EXPECT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(pid), value), 0) << std::strerror(errno);
}

std::vector<std::string> openFiles(pid_t pid) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
    std::error_code closed_meanwhile;
    const fs::path file = fs::read_symlink(entry.path(), closed_meanwhile);
    if (!closed_meanwhile) files.push_back(file);
  }
  EXPECT_FALSE(error) << error.message();
  std::sort(files.begin(), files.end());
  return files;
}

bool watchesSomething(pid_t pid) {
  std::error_code error;
  for (const auto& entry :
       fs::directory_iterator("/proc/" + std::to_string(pid) + "/fdinfo", error)) {
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("inotify wd:")) return true;
    }
  }
  return false;
}

std::int64_t procNumber(pid_t pid, const std::string& file, const std::string& label) {
  std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(label)) return std::strtoll(line.c_str() + label.size(), nullptr, 10);
  }
  return -1;
}

pid_t pidInItsTable(pid_t pid) {
  std::ifstream lines("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("NSpid:")) return std::atoi(line.c_str() + line.rfind('\t'));
  }
  return -1;
}

std::int64_t voluntarySwitches(pid_t pid) {
  std::int64_t switches = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    const std::string file = "task/" + task.path().filename().string() + "/status";
    const std::int64_t of_thread = procNumber(pid, file, "voluntary_ctxt_switches:");
    EXPECT_GE(of_thread, 0);
    switches += of_thread;
  }
  return switches;
}

}  // namespace vorlatch
