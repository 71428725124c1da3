// Makes planned calls of the daemon fail, and adds the calls that the simulated device does not see
// to its trace: file calls, log lines, parsing, writing and allocations. The linker redirects these
// here; calls of the kernel come from the device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/outcomes.h"
#include "tests/support/file_calls.h"

namespace vorlatch::faults {

// One fault: the index of the call, and the index of its outcome (modulo the number of outcomes).
struct Fault {
  std::size_t call;
  std::size_t outcome;
};

// A call that can fail: the path through the daemon on which it is made, and its outcomes.
struct FailingCall {
  std::uint64_t path;
  std::size_t outcomes;
};

class FaultInjector : public tests::FileCallInterceptor {
 public:
  static FaultInjector& get();

  // From now on these calls fail, and all are counted; without faults, with their paths.
  void begin(const std::vector<Fault>& faults);
  // From now on no call fails, and none is counted.
  void end() { is_counting_ = false; }
  // Calls are intercepted only while the daemon runs.
  void watch(bool is_watching);
  [[nodiscard]] bool isWatching() const { return is_watching_; }

  // Counts a call of a kind that fails in one way. Returns true if it is to fail.
  bool fails(const char* kind) { return next(kind, 0) != nullptr; }
  [[nodiscard]] const std::vector<FailingCall>& calls() const { return calls_; }
  // A readable description of the faults that occurred.
  [[nodiscard]] const std::string& story() const { return story_; }

 private:
  FaultInjector();
  std::int64_t intercept(const tests::FileCall& call, const Real& real) override;
  std::optional<simulated::Script> interfere(const std::string& kind, std::int32_t pid);
  const Outcome* next(const std::string& kind, std::int32_t pid);

  bool is_watching_ = false;
  bool is_counting_ = false;
  std::vector<Fault> faults_;
  std::vector<FailingCall> calls_;
  std::string story_;
  Outcome outcome_;
};

}  // namespace vorlatch::faults
