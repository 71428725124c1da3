// The processes of the chaos: two hundred, of ten names and ten bundles, that start and exit.
#pragma once

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/blackbox/target.h"
#include "tests/support/dice.h"

namespace vorlatch {

class Crowd {
 public:
  // Installs the programs under the root and starts all of them.
  Crowd(const std::string& root, tests::Dice& dice) : dice_(dice) {
    for (int i = 0; i < 20; ++i) {
      const bool is_app = i >= 10;
      const std::string key = ownName((is_app ? ".app" : "n") + std::to_string(i));
      kinds_[key] = {.program = is_app ? appIdentified(root, key) : programNamed(root, key),
                     .is_app = is_app};
      keys_.push_back(key);
    }
    fillUp();
  }

  // The names and bundle identifiers.
  [[nodiscard]] const std::vector<std::string>& keys() const { return keys_; }

  // Starts a process or ends one, so that there are about as many as in the beginning.
  void stir() {
    Kind& kind = some();
    if (dice_.between(0, 2 * kSwing) > size_ - kSize + kSwing) {
      start(kind);
    } else if (!kind.running.empty()) {
      const auto nth = static_cast<std::ptrdiff_t>(dice_.below(kind.running.size()));
      end(kind, std::next(kind.running.begin(), nth)->first);
    }
  }

  // Ends all processes of some target.
  void endOneTarget() {
    Kind& kind = some();
    while (!kind.running.empty()) end(kind, kind.running.begin()->first);
  }

  // As many as in the beginning.
  void fillUp() {
    while (size_ > kSize) stir();
    while (size_ < kSize) start(some());
  }

  // The process that the key means, as the machine lists processes, the youngest first: to a watch
  // timer the first of them, to a pass the first of a name and the last of a bundle. 0: none runs.
  [[nodiscard]] pid_t meant(const std::string& key, bool has_timer) const {
    const Kind& kind = kinds_.at(key);
    if (kind.running.empty()) return 0;
    const bool first_listed = has_timer || !kind.is_app;
    return first_listed ? kind.running.rbegin()->first : kind.running.begin()->first;
  }

  // Whether such a process of the key ran then or later.
  [[nodiscard]] bool ranSince(Clock::time_point then, const std::string& key, pid_t pid) const {
    const auto kind = kinds_.find(key);
    if (kind == kinds_.end()) return false;
    const auto ended = kind->second.ended.find(pid);
    return kind->second.running.contains(pid) ||
           (ended != kind->second.ended.end() && ended->second >= then);
  }

 private:
  static constexpr int kSize = 200;
  static constexpr int kSwing = 20;

  struct Kind {
    Program program;
    bool is_app;
    std::map<pid_t, std::unique_ptr<ChildProcess>> running = {};
    std::map<pid_t, Clock::time_point> ended = {};
  };

  Kind& some() { return kinds_.at(dice_.of(keys_)); }
  void start(Kind& kind) {
    auto process = std::make_unique<ChildProcess>(kind.program.executable);
    const pid_t pid = process->pid();
    kind.running.emplace(pid, std::move(process));
    ++size_;
  }
  void end(Kind& kind, pid_t pid) {
    kind.running.erase(pid);
    kind.ended.insert_or_assign(pid, Clock::now());
    --size_;
  }

  tests::Dice& dice_;
  std::map<std::string, Kind> kinds_;
  std::vector<std::string> keys_;
  int size_ = 0;
};

}  // namespace vorlatch
