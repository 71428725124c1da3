// Real processes and files for the tests of the Linux platform.
#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace vorlatch {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = std::filesystem::temp_directory_path() / "vorlatch-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = std::filesystem::canonical(pattern);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Both ends of a pipe; they close by themselves, and in a program that is executed.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    closeReading();
    closeWriting();
  }
  void closeReading() { closeEnd(ends_[0]); }
  void closeWriting() { closeEnd(ends_[1]); }
  [[nodiscard]] int reading() const { return ends_[0]; }
  [[nodiscard]] int writing() const { return ends_[1]; }

  void say() const {
    const char byte = '!';
    EXPECT_EQ(write(ends_[1], &byte, 1), 1);
  }
  // Waits for what the other side says; false when it has gone instead.
  [[nodiscard]] bool hear() const {
    char byte = 0;
    return read(ends_[0], &byte, 1) == 1;
  }

 private:
  static void closeEnd(int& end) {
    if (end >= 0) close(end);
    end = -1;
  }
  std::array<int, 2> ends_{-1, -1};
};

struct Program {
  std::string path;  // of a copy of cat
};

// A child process, ended and reaped with the object.
class Child {
 public:
  // Forks a child that runs the body and then waits to be killed; comes back when the body is done.
  explicit Child(const std::function<void()>& body = [] {}) {
    start([&] {
      body();
      output_.say();
      while (true) pause();
    });
    output_.closeWriting();
    EXPECT_TRUE(output_.hear());
  }

  // Runs a copy of cat; comes back when it has answered and so bears its own name.
  explicit Child(const Program& program) {
    start([&] {
      dup2(input_.reading(), STDIN_FILENO);
      dup2(output_.writing(), STDOUT_FILENO);
      execl(program.path.c_str(), program.path.c_str(), nullptr);
    });
    output_.closeWriting();
    input_.say();
    EXPECT_TRUE(output_.hear());
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
    if (pid_ < 0 || reaped_) return;
    ::kill(pid_, SIGKILL);
    EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    reaped_ = true;
  }

 private:
  void start(const std::function<void()>& run) {
    pid_ = fork();
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    run();
    _exit(1);
  }

  Pipe input_;
  Pipe output_;
  pid_t pid_ = -1;
  bool reaped_ = false;
};

}  // namespace vorlatch
