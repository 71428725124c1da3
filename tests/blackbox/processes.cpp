#include "tests/blackbox/processes.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
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
#include <ostream>

#include <gtest/gtest.h>

#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

// What a program writes goes to a file in memory.
Descriptor outputFile(const Launch& launch) {
  return Descriptor(launch.gives_output ? memfd_create("output", MFD_CLOEXEC) : -1);
}

std::string contentsOf(const Descriptor& file) {
  return tests::readAll("/proc/self/fd/" + std::to_string(file.get()));
}

bool becomeUser(uid_t user) {
  return setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
}

// Nothing is passed on: what the test itself has open is not the program's.
bool leaveOnlyStandardStreams(int out, int err) {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  return dup2(nothing, STDIN_FILENO) >= 0 && dup2(out < 0 ? nothing : out, STDOUT_FILENO) >= 0 &&
         dup2(err < 0 ? nothing : err, STDERR_FILENO) >= 0 &&
         close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
}

// In the child, up to the program; comes back only when it cannot be run.
void become(std::string program, const Launch& launch, int out, int err) {
  // Whatever nice value the test itself was started with.
  setpriority(PRIO_PROCESS, 0, 0);
  if (launch.user && !becomeUser(*launch.user)) return;
  // After the change of the user, which would undo it.
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || !leaveOnlyStandardStreams(out, err)) return;
  for (const auto& [name, value] : launch.environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<std::string> arguments = launch.arguments;
  std::vector<char*> argv{program.data()};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
}

pid_t startChild(const std::string& executable, const Launch& launch, const Descriptor& out,
                 const Descriptor& err) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reading(ends[0]);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    become(executable, launch, out.get(), err.get());
    const int error = errno;
    if (getppid() == parent && write(ends[1], &error, sizeof(error)) < 0) _exit(126);
    _exit(127);
  }
  close(ends[1]);
  // The program closes the pipe by running.
  int error = 0;
  EXPECT_EQ(read(reading.get(), &error, sizeof(error)), 0)
      << executable << ": " << std::strerror(error);
  return pid;
}

std::string procPath(pid_t pid, const std::string& file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

// The number behind the label, in a file of the process under /proc.
std::int64_t procNumber(pid_t pid, const std::string& file, const std::string& label) {
  const std::string text = tests::readAll(procPath(pid, file));
  const std::size_t at = text.find("\n" + label);
  EXPECT_NE(at, text.npos) << "no " << label << " in " << file << " of " << pid;
  return at == text.npos ? 0 : std::stoll(text.substr(at + 1 + label.size()));
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Output& output) {
  return stream << "status " << output.status << "\nout:\n" << output.out << "err:\n" << output.err;
}

// The descriptor as the system call gives it: the C library's function is not declared for C++
// everywhere.
ChildProcess::ChildProcess(const std::string& executable, const Launch& launch)
    : out_(outputFile(launch)),
      err_(outputFile(launch)),
      pid_(startChild(executable, launch, out_, err_)),
      end_(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0))) {
  EXPECT_TRUE(end_.isOpen());
}

bool ChildProcess::hasEnded() const {
  pollfd end{.fd = end_.get(), .events = POLLIN, .revents = 0};
  return poll(&end, 1, 0) == 1;
}

void ChildProcess::kill() {
  if (reaped_) return;
  ::kill(pid_, SIGKILL);
  EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
  reaped_ = true;
}

int ChildProcess::exitCode() {
  pollfd end{.fd = end_.get(), .events = POLLIN, .revents = 0};
  if (poll(&end, 1, static_cast<int>(kPatience / std::chrono::milliseconds(1))) != 1) return -1;
  int status = 0;
  EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
  reaped_ = true;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool ChildProcess::waitForOutput(const std::string& text) const {
  constexpr int kLookIntervalMs = 5;
  pollfd end{.fd = end_.get(), .events = POLLIN, .revents = 0};
  const auto deadline = Clock::now() + kPatience;
  while (contentsOf(out_).find(text) == std::string::npos) {
    if (poll(&end, 1, kLookIntervalMs) != 0 || Clock::now() > deadline) return false;
  }
  return true;
}

Output ChildProcess::output() {
  const int status = exitCode();
  return {.status = status, .out = contentsOf(out_), .err = contentsOf(err_)};
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

bool watchesSomething(pid_t pid) {
  std::error_code error;
  const fs::directory_iterator descriptors(procPath(pid, "fdinfo"), error);
  return std::any_of(begin(descriptors), end(descriptors), [](const fs::directory_entry& entry) {
    return tests::readAll(entry.path()).find("\ninotify wd:") != std::string::npos;
  });
}

std::int64_t voluntarySwitches(pid_t pid) {
  std::int64_t switches = 0;
  for (const auto& task : fs::directory_iterator(procPath(pid, "task"))) {
    const std::string file = "task/" + task.path().filename().string() + "/status";
    switches += procNumber(pid, file, "voluntary_ctxt_switches:");
  }
  return switches;
}

ResourceUse resourceUseOf(pid_t pid) {
  ResourceUse use{.open_files = {},
                  .threads = procNumber(pid, "status", "Threads:"),
                  .anonymous_kb = procNumber(pid, "smaps_rollup", "Anonymous:")};
  for (const auto& entry : fs::directory_iterator(procPath(pid, "fd"))) {
    std::error_code closed_meanwhile;
    const fs::path file = fs::read_symlink(entry.path(), closed_meanwhile);
    if (!closed_meanwhile) use.open_files.push_back(file);
  }
  std::sort(use.open_files.begin(), use.open_files.end());
  return use;
}

void expectNoMore(const ResourceUse& now, const ResourceUse& before,
                  [[maybe_unused]] std::int64_t growth_max_kb) {
  EXPECT_EQ(now.open_files, before.open_files);
  EXPECT_EQ(now.threads, before.threads);
#ifndef VORLATCH_SANITIZED
  ASSERT_GT(before.anonymous_kb, 0);
  EXPECT_LE(now.anonymous_kb, before.anonymous_kb + growth_max_kb);
#endif
}

}  // namespace vorlatch
