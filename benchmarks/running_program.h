// A program that was started for a benchmark, and what it costs.
#pragma once

#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/files.h"
#include "benchmarks/installation.h"

namespace vorlatch::benchmarks {

class RunningProgram {
 public:
  RunningProgram(const Installation& installation, const std::vector<std::string>& arguments)
      : pid_(installation.start(arguments)) {}
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  ~RunningProgram() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  [[nodiscard]] long contextSwitches() const {
    return perThread("status", "voluntary_ctxt_switches:") +
           perThread("status", "nonvoluntary_ctxt_switches:");
  }
  [[nodiscard]] double cpuMs() const {
    return static_cast<double>(perThread("schedstat", "")) / 1e6;
  }
  [[nodiscard]] long memoryKb(const std::string& field) const {
    return number(proc("smaps_rollup"), field);
  }
  // Returns the path of the process's file of /proc.
  [[nodiscard]] std::string proc(const std::string& name) const {
    return "/proc/" + std::to_string(pid_) + "/" + name;
  }

 private:
  // The number that follows the field.
  static long number(const std::string& file, const std::string& field) {
    const std::string text = readFile(file, 1 << 20).value_or("");
    const std::size_t at = text.find(field);
    return at == text.npos ? -1 : std::atol(text.c_str() + at + field.size());
  }
  // The sum over all threads.
  [[nodiscard]] long perThread(const char* file, const std::string& field) const {
    long sum = 0;
    for (const auto& thread : std::filesystem::directory_iterator(proc("task"))) {
      sum += number(thread.path() / file, field);
    }
    return sum;
  }

  const pid_t pid_;
};

}  // namespace vorlatch::benchmarks
