// Passes, ticks and patrols.
#include <algorithm>
#include <utility>

#include "tests/faults/rules.h"

namespace vorlatch::faults {
namespace {

using std::to_string;

const std::string kTargetRule(40, '-');
const std::string kChapterRule(40, '=');
constexpr std::int64_t kPatrolMs = 1'800'000;

std::int32_t pidIn(const std::map<std::string, std::int32_t>& pids, const std::string& key) {
  const auto entry = pids.find(key);
  return entry == pids.end() ? 0 : entry->second;
}

}  // namespace

void Rules::post() {
  if (observes_) debounce_due_ms_ = now_ms_ + 150;
}

void Rules::until(std::int64_t ms) {
  while (true) {
    auto timer = std::min_element(timers_.begin(), timers_.end(), [](const auto& a, const auto& b) {
      return a.second.due_ms < b.second.due_ms;
    });
    const std::int64_t tick_ms = timer != timers_.end() ? timer->second.due_ms : INT64_MAX;
    const std::int64_t pass_ms = debounce_due_ms_.value_or(INT64_MAX);
    const std::int64_t due_ms = std::min({tick_ms, pass_ms, patrol_due_ms_});
    if (due_ms > ms) break;
    now_ms_ = due_ms;
    if (due_ms == pass_ms) {
      debounce_due_ms_.reset();
      pass();
    } else if (due_ms == patrol_due_ms_) {
      patrol_due_ms_ += kPatrolMs;
      patrol();
    } else {
      timer->second.due_ms += std::int64_t{timer->second.settings.interval_s} * 1000;
      tick(timer->first, timer->second);
    }
    for (const auto& [key, pid] : std::exchange(to_restore_, {})) restore(key, pid);
  }
  now_ms_ = ms;
  calls.end();
}

void Rules::changed(const std::string& key, const Settings& settings, std::int32_t pid) {
  calls.line(kTargetRule);
  if (pid != 0) {
    calls.line("[进程] 目标: " + key + " 已启动 PID: " + to_string(pid) + " ");
    apply(key, settings, pid);
  } else {
    calls.line("[进程] 目标: " + key + " 已退出");
    updateStatus(key, 0, 0, 0);
  }
}

void Rules::tick(const std::string& key, Timer& timer) {
  const std::int32_t pid = find(key);
  if (pid != pidIn(pids_, key)) {
    changed(key, timer.settings, pid);
    pids_[key] = pid;
  } else if (pid != 0) {
    calls.line(kTargetRule);
    calls.line("[守护] 目标: " + key + " | 检测: " + to_string(timer.settings.interval_s) +
               "s | PID: " + to_string(pid));
    apply(key, timer.settings, pid);
  }
}

void Rules::patrol() {
  const Preferences read = load();
  if (!read.is_enabled || read.targets.empty()) return;
  calls.line(kChapterRule);
  calls.line("[守护] 开始执行 1800s ");
  const Pids running = findAll();
  for (const auto& [key, settings] : read.targets) {
    if (settings.interval_s > 0) continue;
    const std::int32_t pid = pidIn(running, key);
    if (pid != 0) {
      apply(key, settings, pid);
    } else {
      updateStatus(key, 0, 0, 0);
    }
    pids_[key] = pid;
  }
  calls.line("[全局守护] 1800s 周期巡检完成。");
  calls.line(kChapterRule);
}

void Rules::release(const std::set<std::string>& keys, const std::string& message) {
  if (keys.empty()) return;
  calls.line(kTargetRule);
  calls.line("[配置] " + message);
  for (const std::string& key : keys) {
    to_restore_[key] = pidIn(pids_, key);
    timers_.erase(key);
    applied_.erase(key);
    known_.erase(key);
    pids_.erase(key);
  }
}

void Rules::pass() {
  limitLog();
  const Preferences read = load();
  if (!read.is_enabled) {
    release(std::set<std::string>(known_), "生效开关已关闭，已挂起守护进程并还原默认状态");
    pids_.clear();
    return;
  }
  std::set<std::string> removed;
  for (const std::string& key : known_) {
    if (!read.targets.contains(key)) removed.insert(key);
  }
  release(removed, "已有进程从列表移除，已恢复默认");
  if (read.targets.empty()) return;
  const Pids running = findAll();
  for (const auto& [key, settings] : read.targets) reconcile(key, settings, pidIn(running, key));
}

void Rules::reconcile(const std::string& key, const Settings& settings, std::int32_t pid) {
  const auto last = applied_.find(key);
  const bool is_changed = last == applied_.end() || last->second != settings;
  const bool is_same = pid == pidIn(pids_, key);
  if (!is_changed && is_same) return;
  applied_[key] = settings;
  pids_[key] = pid;
  known_.insert(key);
  if (!is_same) {
    changed(key, settings, pid);
  } else if (pid != 0) {
    calls.line(kTargetRule);
    calls.line("[配置] 目标: " + key + " PID: " + to_string(pid));
    apply(key, settings, pid);
  }
  timers_.erase(key);
  if (settings.interval_s > 0) {
    timers_[key] = {.due_ms = now_ms_ + std::int64_t{settings.interval_s} * 1000,
                    .settings = settings};
  }
}

}  // namespace vorlatch::faults
