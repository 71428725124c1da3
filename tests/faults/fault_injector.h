// Records every call of the daemon with its result, and makes planned calls fail. The linker
// redirects platform calls (wrapped_seam.cpp) and file calls here. Outside watch(), all calls are
// the real ones.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/faults/call.h"
#include "tests/faults/outcomes.h"
#include "tests/support/file_calls.h"

namespace vorlatch::faults {

// One fault: the index of the call, and the index of its outcome (modulo the number of outcomes).
struct Fault {
  std::size_t call;
  std::size_t outcome;
};

class FaultInjector : public tests::FileCallInterceptor {
 public:
  static FaultInjector& get();

  void plan(std::vector<Fault> faults) { faults_ = std::move(faults); }
  // Runs a part of the daemon and records its calls.
  void watch(const std::function<void()>& piece);
  [[nodiscard]] bool isWatching() const { return is_watching_; }
  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }
  // A readable description of the faults that occurred.
  [[nodiscard]] const std::string& story() const { return story_; }

  // For the wrapped functions. Makes one call: `real` makes the real call or a part of it and
  // returns its result; `buffer` is what it reads and writes.
  std::int64_t pass(Call call, void* buffer, std::size_t buffer_bytes,
                    const std::function<std::int64_t(bool in_part)>& real);
  // The record of the last call, which the caller may change.
  Call& last() { return calls_.back(); }

 private:
  std::int64_t intercept(const tests::FileCall& call, const Real& real) override;
  void watchCalls(bool is_watching);
  const Outcome* planned(const Call& call);

  bool is_watching_ = false;
  std::vector<Fault> faults_;
  std::vector<Call> calls_;
  std::string story_;
  Outcome outcome_{};
};

}  // namespace vorlatch::faults
