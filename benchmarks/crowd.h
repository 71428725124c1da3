// Starts idle processes in addition to those that already run.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch::benchmarks {

class Crowd {
 public:
  // With a prefix, each process is named by the prefix and its number, at most 15 characters.
  explicit Crowd(std::int64_t count, const std::string& prefix = {}) {
    for (std::int64_t i = 0; i < count; ++i) {
      const std::string name = prefix + std::to_string(i);
      const pid_t pid = fork();
      if (pid == 0) {
        if (!prefix.empty()) prctl(PR_SET_NAME, name.c_str());
        while (true) pause();
      }
      if (pid > 0) pids_.push_back(pid);
    }
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    for (const pid_t pid : pids_) kill(pid, SIGKILL);
    for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
  }
  [[nodiscard]] const std::vector<pid_t>& pids() const { return pids_; }

 private:
  std::vector<pid_t> pids_;
};

}  // namespace vorlatch::benchmarks
