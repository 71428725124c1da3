// Interceptors of the file calls of the code under test. Only one may exist at a time.
#pragma once

#include <functional>
#include <utility>

#include "tests/support/file_calls.h"

namespace vorlatch::tests {

// Gives every file call during its lifetime to the function.
class Intercepted : public FileCallInterceptor {
 public:
  using Function = std::function<std::int64_t(const FileCall& call, const Real& real)>;

  explicit Intercepted(Function function) : function_(std::move(function)) {
    interceptFileCalls(this);
  }
  ~Intercepted() override { interceptFileCalls(nullptr); }

 private:
  std::int64_t intercept(const FileCall& call, const Real& real) override {
    return function_(call, real);
  }

  const Function function_;
};

// Runs the action right before the n-th file call from now on, counted from 1. File calls of the
// action itself are not counted.
class BeforeFileCall {
 public:
  BeforeFileCall(int n, std::function<void()> action)
      : calls_left_(n), action_(std::move(action)) {}
  // Returns false if there were fewer calls.
  [[nodiscard]] bool hasHappened() const { return !action_; }

 private:
  int calls_left_;
  std::function<void()> action_;
  const Intercepted intercepted_{[this](const FileCall& /*call*/, const auto& real) {
    if (action_ && --calls_left_ == 0) std::exchange(action_, nullptr)();
    return real(false);
  }};
};

}  // namespace vorlatch::tests
