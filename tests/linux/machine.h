// Real processes for the tests of the Linux platform.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch {

using tests::TemporaryDirectory;

inline constexpr uid_t kNobody = 65534;

inline std::string bootId() {
  return tests::readAll("/proc/sys/kernel/random/boot_id").substr(0, 36);
}

// A forked child, killed and reaped with the object.
class Child {
 public:
  // The child runs the body and then stops. Returns when the body is done; fails the test if a
  // check in the body failed.
  explicit Child(const std::function<void()>& body = [] {}) : pid_(fork()) {
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      body();
      if (testing::Test::HasFailure()) _exit(1);
      raise(SIGSTOP);
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, WUNTRACED), pid_);
    reaped_ = !WIFSTOPPED(status);
    EXPECT_FALSE(reaped_) << "a check failed in the child";
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
  const pid_t pid_;
  bool reaped_ = false;
};

}  // namespace vorlatch
