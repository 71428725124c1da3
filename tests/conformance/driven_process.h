// A process of the platform under test that runs as long as the object lives.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "tests/conformance/answer.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {

class Process {
 public:
  explicit Process(const std::string& name) : path_(executablePath(name)) {
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
