// What can be done about the file calls of the code under test. One of these objects at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/file_calls.h"

namespace vorlatch::tests {

// Takes the calls for as long as it lives.
class ScopedFileCallTaker : public FileCallTaker {
 public:
  ScopedFileCallTaker() { letTakeFileCalls(this); }
  ~ScopedFileCallTaker() override { letTakeFileCalls(nullptr); }
};

// Runs the action right before the n-th file call from now on, counted from 1.
class BeforeFileCall : public ScopedFileCallTaker {
 public:
  BeforeFileCall(int n, std::function<void()> action)
      : calls_left_(n), action_(std::move(action)) {}
  // False when there were fewer calls.
  [[nodiscard]] bool hasHappened() const { return !action_; }

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;

  int calls_left_;
  std::function<void()> action_;
};

// Refuses every call of this name, with EIO.
class RefusedFileCalls : public ScopedFileCallTaker {
 public:
  explicit RefusedFileCalls(std::string name) : name_(std::move(name)) {}

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;

  const std::string name_;
};

// Collects the paths that are opened though something else than a file stands there.
class OpenedSpecials : public ScopedFileCallTaker {
 public:
  std::vector<std::string> paths;

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;
};

}  // namespace vorlatch::tests
