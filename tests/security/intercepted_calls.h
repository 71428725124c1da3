// Interceptors of the file calls of the code under test. Only one may exist at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/file_calls.h"

namespace vorlatch::tests {

// Intercepts file calls during its lifetime.
class ScopedFileCallInterceptor : public FileCallInterceptor {
 public:
  ScopedFileCallInterceptor() { interceptFileCalls(this); }
  ~ScopedFileCallInterceptor() override { interceptFileCalls(nullptr); }
};

// Runs the action right before the n-th file call from now on, counted from 1.
class BeforeFileCall : public ScopedFileCallInterceptor {
 public:
  BeforeFileCall(int n, std::function<void()> action)
      : calls_left_(n), action_(std::move(action)) {}
  // Returns false if there were fewer calls.
  [[nodiscard]] bool hasHappened() const { return !action_; }

 private:
  std::int64_t intercept(const FileCall& call, const Real& real) override;

  int calls_left_;
  std::function<void()> action_;
};

// Makes every call with this name fail with EIO.
class RefusedFileCalls : public ScopedFileCallInterceptor {
 public:
  explicit RefusedFileCalls(std::string name) : name_(std::move(name)) {}

 private:
  std::int64_t intercept(const FileCall& call, const Real& real) override;

  const std::string name_;
};

// Collects the paths that are opened although they are not regular files.
class OpenedSpecials : public ScopedFileCallInterceptor {
 public:
  std::vector<std::string> paths;

 private:
  std::int64_t intercept(const FileCall& call, const Real& real) override;
};

}  // namespace vorlatch::tests
