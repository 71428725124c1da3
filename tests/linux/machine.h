// Real processes and files for the tests of the Linux platform.
#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch {

using tests::TemporaryDirectory;

inline std::string bootId() {
  return tests::readAll("/proc/sys/kernel/random/boot_id").substr(0, 36);
}

// Both ends of a pipe; they close by themselves, and in a program that is executed.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    close(ends_[0]);
    closeWriting();
  }
  void closeWriting() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }
  void say() const { EXPECT_EQ(write(ends_[1], "!", 1), 1); }
  // Waits for what the other side says; false when it has gone instead.
  [[nodiscard]] bool hear() const {
    char byte = 0;
    return read(ends_[0], &byte, 1) == 1;
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

// A forked child, ended and reaped with the object.
class Child {
 public:
  // The child runs the body and then waits to be killed. Comes back when the body is done; fails
  // the test when a check in the body failed.
  explicit Child(const std::function<void()>& body = [] {}) : pid_(fork()) {
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      body();
      if (testing::Test::HasFailure()) _exit(1);
      done_.say();
      while (true) pause();
    }
    done_.closeWriting();
    EXPECT_TRUE(done_.hear());
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { end(); }

  [[nodiscard]] pid_t pid() const { return pid_; }

  // Kills it and waits until it is dead, but leaves it to be reaped: a zombie.
  void kill() const {
    ::kill(pid_, SIGKILL);
    siginfo_t info{};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT), 0);
  }

  // Kills and reaps it: its pid belongs to nobody.
  void end() {
    if (reaped_) return;
    ::kill(pid_, SIGKILL);
    EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    reaped_ = true;
  }

 private:
  Pipe done_;
  const pid_t pid_;
  bool reaped_ = false;
};

}  // namespace vorlatch
