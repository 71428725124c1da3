#include "tests/soak/crowd.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vorlatch {
namespace {

constexpr int kSize = 200;
constexpr int kSwing = 20;
constexpr int kNames = 10;
constexpr int kApps = 10;

}  // namespace

Crowd::Crowd(const Installation& installation, tests::Dice& dice) : dice_(dice) {
  for (int i = 0; i < kNames + kApps; ++i) {
    const bool is_app = i >= kNames;
    const std::string number = std::to_string(i);
    Program program = is_app ? appIdentified(installation, ownName(".app" + number))
                             : programNamed(installation, ownName("n" + number));
    kinds_.push_back({.program = std::move(program), .is_app = is_app, .running = {}, .ended = {}});
  }
  fillUp();
}

std::vector<std::string> Crowd::keys() const {
  std::vector<std::string> keys;
  keys.reserve(kinds_.size());
  for (const Kind& kind : kinds_) keys.push_back(kind.program.key);
  return keys;
}

void Crowd::stir() {
  Kind& kind = dice_.of(kinds_);
  const bool grows = dice_.between(0, 2 * kSwing) > size() - kSize + kSwing;
  if (grows) {
    start(kind);
  } else if (!kind.running.empty()) {
    const int nth = dice_.between(0, static_cast<int>(kind.running.size()) - 1);
    end(kind, std::next(kind.running.begin(), nth)->first);
  }
}

void Crowd::endOneTarget() {
  Kind& kind = dice_.of(kinds_);
  while (!kind.running.empty()) end(kind, kind.running.begin()->first);
}

void Crowd::fillUp() {
  while (size() > kSize) stir();
  while (size() < kSize) start(dice_.of(kinds_));
}

pid_t Crowd::meant(const std::string& key, bool has_timer) const {
  const auto kind = std::find_if(kinds_.begin(), kinds_.end(),
                                 [&](const Kind& each) { return each.program.key == key; });
  if (kind == kinds_.end() || kind->running.empty()) return 0;
  const bool first_listed = has_timer || !kind->is_app;
  return first_listed ? kind->running.rbegin()->first : kind->running.begin()->first;
}

bool Crowd::ranSince(Clock::time_point then, const std::string& key, pid_t pid) const {
  return std::any_of(kinds_.begin(), kinds_.end(), [&](const Kind& kind) {
    if (kind.program.key != key) return false;
    if (kind.running.contains(pid)) return true;
    const auto ended = kind.ended.find(pid);
    return ended != kind.ended.end() && ended->second >= then;
  });
}

void Crowd::start(Kind& kind) {
  auto process = std::make_unique<ChildProcess>(kind.program.executable);
  const pid_t pid = process->pid();
  kind.running.emplace(pid, std::move(process));
  ++starts_;
}

void Crowd::end(Kind& kind, pid_t pid) {
  kind.running.erase(pid);
  kind.ended.insert_or_assign(pid, Clock::now());
  ++exits_;
}

}  // namespace vorlatch
