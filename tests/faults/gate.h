// The gate that the daemon's calls pass. It keeps each with what came of it, and makes those fail
// that are planned to. The linker leads the calls of the seam (wrapped_seam.cpp) and those on files
// here; while no daemon code runs, they are the real ones.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/faults/call.h"
#include "tests/faults/outcomes.h"
#include "tests/support/file_calls.h"

namespace vorlatch::faults {

// What happens to one call: which of its outcomes, counted around when it has fewer.
struct Fault {
  std::size_t call;
  std::size_t outcome;
};

class Gate : public tests::FileCallTaker {
 public:
  static Gate& get();

  void plan(std::vector<Fault> faults) { faults_ = std::move(faults); }
  // Runs a piece of the daemon with its calls watched.
  void watch(const std::function<void()>& piece);
  [[nodiscard]] bool isWatching() const { return is_watching_; }
  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }
  // What the planned faults came to, for a reader.
  [[nodiscard]] const std::string& story() const { return story_; }

  // For the wrapped functions. Makes one call: `real` is the real one, or a part of it, and gives
  // its result; `buffer` is what it reads and writes.
  std::int64_t pass(Call call, void* buffer, std::size_t buffer_bytes,
                    const std::function<std::int64_t(bool in_part)>& real);
  // Changes what was kept of the last call.
  Call& last() { return calls_.back(); }

 private:
  std::int64_t take(const tests::FileCall& call, const Real& real) override;
  void watchCalls(bool is_watching);
  const Outcome* planned(const Call& call);

  bool is_watching_ = false;
  std::vector<Fault> faults_;
  std::vector<Call> calls_;
  std::string story_;
  Outcome outcome_{};
};

}  // namespace vorlatch::faults
