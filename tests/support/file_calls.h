// The file calls of the code under test, for the moment between two of them. For programs that are
// linked with --wrap for each of these calls.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vorlatch::tests {

// Runs the action right before the n-th file call from now on, counted from 1.
class BeforeFileCall {
 public:
  BeforeFileCall(int n, std::function<void()> action);
  BeforeFileCall(const BeforeFileCall&) = delete;
  BeforeFileCall& operator=(const BeforeFileCall&) = delete;
  ~BeforeFileCall();
  // False when there were fewer calls.
  [[nodiscard]] bool hasHappened() const { return !action_; }
  // A file call comes.
  void note();

 private:
  int calls_left_;
  std::function<void()> action_;
};

// Collects the paths that are opened though something else than a file stands there.
class OpenedSpecials {
 public:
  OpenedSpecials();
  OpenedSpecials(const OpenedSpecials&) = delete;
  OpenedSpecials& operator=(const OpenedSpecials&) = delete;
  ~OpenedSpecials();

  std::vector<std::string> paths;
};

}  // namespace vorlatch::tests
