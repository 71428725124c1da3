// What can be done about the file calls of the code under test. One of these objects at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/file_calls.h"

namespace vorlatch::tests {

// Runs the action right before the n-th file call from now on, counted from 1.
class BeforeFileCall : public FileCallTaker {
 public:
  BeforeFileCall(int n, std::function<void()> action);
  ~BeforeFileCall() override;
  // False when there were fewer calls.
  [[nodiscard]] bool hasHappened() const { return !action_; }

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;

  int calls_left_;
  std::function<void()> action_;
};

// Refuses every call of this name, with EIO.
class RefusedFileCalls : public FileCallTaker {
 public:
  explicit RefusedFileCalls(std::string name);
  ~RefusedFileCalls() override;

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;

  const std::string name_;
};

// Collects the paths that are opened though something else than a file stands there.
class OpenedSpecials : public FileCallTaker {
 public:
  OpenedSpecials();
  ~OpenedSpecials() override;

  std::vector<std::string> paths;

 private:
  std::int64_t take(const FileCall& call, const Real& real) override;
};

}  // namespace vorlatch::tests
