#include "tests/oracle/oracle.h"

#include <algorithm>
#include <utility>

#include "tests/oracle/reading.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint64_t kSecond = 1000 * kMs;
constexpr std::uint64_t kNever = ~std::uint64_t{0};

const std::string kMain = "main";
const std::string kDebounce = "com.zel.vorlatch.debounce";
const std::string kWorker = "com.zel.vorlatch.worker";
const std::string kChapter(40, '=');
const std::string kBlock(40, '-');

std::int32_t pidIn(const std::map<std::string, std::int32_t>& pids, const std::string& key) {
  const auto entry = pids.find(key);
  return entry != pids.end() ? entry->second : 0;
}

std::int32_t intervalOf(const Dictionary& settings) {
  return std::max(0, intIn(settings, "CheckInterval"));
}

std::string timeText(std::uint64_t ns) {
  return ns == kNever ? "never" : std::to_string(ns);
}

std::string timerCall(std::uint64_t start_ns, std::uint64_t interval_ns, std::uint64_t leeway_ns) {
  return "startTimer(" + kDebounce + ", " + timeText(start_ns) + ", " + timeText(interval_ns) +
         ", " + timeText(leeway_ns) + ")";
}

std::string cancelCall(int timer) {
  return "cancelTimer(timer " + std::to_string(timer) + ")";
}

std::string watchTimerCall(std::int32_t interval_s) {
  const auto interval_ns = static_cast<std::uint64_t>(interval_s) * kSecond;
  return timerCall(interval_ns, interval_ns, kSecond);
}

std::string startedLine(const std::string& key, std::int32_t pid) {
  return "[进程] 目标: " + key + " 已启动 PID: " + std::to_string(pid) + " ";
}

std::string endedLine(const std::string& key) {
  return "[进程] 目标: " + key + " 已退出";
}

}  // namespace

// Scheduling: which work runs when, and on which queue.

void Oracle::started() {
  observer_.opensLog();
  line(kChapter);
  if (observer_.findsNoPreferences()) {
    observer_.writesPreset(preset());
    line("[配置] 已生成默认预设参数");
  }
  protectItself();
  observer_.schedules("makeSerialQueue(\"" + kDebounce + "\")");
  observer_.schedules("makeSerialQueue(\"" + kWorker + "\")");
  queues_[kDebounce].emplace_back([this] { arm(); });
  startTimer(1800 * kSecond, 1800 * kSecond, 5 * kSecond, [this] { patrol(); });
  observer_.schedules("observeNotification(\"com.zel.vorlatch/ApplyLimits\")");
  observer_.schedules("runMainLoop()");
}

void Oracle::posted() {
  queues_[kMain].emplace_back([this] { queues_[kDebounce].emplace_back([this] { arm(); }); });
}

void Oracle::ranQueue(const std::string& queue) {
  auto& sent = queues_[queue];
  if (sent.empty()) throw Mismatch("work ran that nobody sent, on " + queue);
  const auto work = std::move(sent.front());
  sent.pop_front();
  work();
}

void Oracle::ranTimer(int id, std::uint64_t now_ns) {
  const auto entry = timers_.find(id);
  if (entry == timers_.end() || entry->second.due_ns > now_ns) {
    throw Mismatch("timer " + std::to_string(id) + " ticked, which is not due");
  }
  Timer& timer = entry->second;
  if (timer.interval_ns == kNever) {
    timer.due_ns = kNever;
  } else {
    while (timer.due_ns <= now_ns) timer.due_ns += timer.interval_ns;
  }
  const auto tick = timer.tick;
  tick();
}

void Oracle::idledUntil(std::uint64_t now_ns) const {
  if (const auto queue = waitingQueue()) throw Mismatch("work was left over on " + *queue);
  for (const auto& [id, timer] : timers_) {
    if (timer.due_ns < now_ns) throw Mismatch("timer " + std::to_string(id) + " did not tick");
  }
}

std::optional<std::string> Oracle::waitingQueue() const {
  for (const auto& [queue, sent] : queues_) {
    if (!sent.empty()) return queue;
  }
  return std::nullopt;
}

int Oracle::startTimer(std::uint64_t start_ns, std::uint64_t interval_ns, std::uint64_t leeway_ns,
                       std::function<void()> tick) {
  const int id = ++last_timer_;
  const std::uint64_t now_ns = observer_.schedules(timerCall(start_ns, interval_ns, leeway_ns) +
                                                   " = timer " + std::to_string(id));
  timers_[id] = {.due_ns = now_ns + start_ns, .interval_ns = interval_ns, .tick = std::move(tick)};
  return id;
}

void Oracle::cancelTimer(int id) {
  observer_.schedules(cancelCall(id));
  timers_.erase(id);
}

void Oracle::arm() {
  if (debounce_timer_ != 0) cancelTimer(debounce_timer_);
  debounce_timer_ = startTimer(150 * kMs, kNever, 0, [this] { pass(); });
}

// The reconciliation pass.

void Oracle::pass() {
  clearLog();
  const std::optional<Targets> configured = configuredTargets();
  if (!configured) {
    switchOff();
    return;
  }
  restoreRemoved(*configured);
  if (configured->empty()) return;
  const PIDs running = runningProcesses();
  std::vector<Target> different;
  for (const auto& [key, settings] : *configured) {
    const std::int32_t pid = pidIn(running, key);
    const bool changed = !applied_.contains(key) || settings != applied_.at(key);
    const bool same_pid = pid == pidIn(last_pids_, key);
    if (!changed && same_pid) continue;
    Target target{.key = key, .settings = settings, .pid = pid};
    if (!same_pid) {
      target.line = pid != 0 ? startedLine(key, pid) : endedLine(key);
    } else if (pid != 0) {
      target.line = "[配置] 目标: " + key + " PID: " + std::to_string(pid);
    } else if (watch_timers_.contains(key)) {
      target.call = cancelCall(watch_timers_.at(key));
    } else if (intervalOf(settings) > 0) {
      target.call = watchTimerCall(intervalOf(settings));
    }
    different.push_back(target);
  }
  while (!different.empty()) reconcile(takeNext(different));
}

void Oracle::reconcile(const Target& target) {
  applied_[target.key] = target.settings;
  last_pids_[target.key] = target.pid;
  known_.insert(target.key);
  if (!target.line.empty()) {
    line(kBlock);
    line(target.line);
    if (target.pid != 0) {
      apply(target.key, target.settings, target.pid);
    } else {
      record(target.key, 0, 0, 0);
    }
  }
  const auto timer = watch_timers_.find(target.key);
  if (timer != watch_timers_.end()) {
    cancelTimer(timer->second);
    watch_timers_.erase(timer);
  }
  if (const std::int32_t interval_s = intervalOf(target.settings); interval_s > 0) {
    const auto interval_ns = static_cast<std::uint64_t>(interval_s) * kSecond;
    watch_timers_[target.key] = startTimer(interval_ns, interval_ns, kSecond,
                                           [this, key = target.key, settings = target.settings,
                                            interval_s] { tick(key, settings, interval_s); });
  }
}

void Oracle::restoreRemoved(const Targets& configured) {
  std::vector<Target> removed;
  std::vector<int> timers;
  for (const std::string& key : known_) {
    if (configured.contains(key)) continue;
    removed.push_back({.key = key, .pid = pidIn(last_pids_, key)});
    if (const auto timer = watch_timers_.find(key); timer != watch_timers_.end()) {
      timers.push_back(timer->second);
    }
  }
  if (removed.empty()) return;
  for (const Target& target : removed) {
    watch_timers_.erase(target.key);
    applied_.erase(target.key);
    known_.erase(target.key);
    last_pids_.erase(target.key);
  }
  cancelTimers(std::move(timers));
  line(kBlock);
  line("[配置] 已有进程从列表移除，已恢复默认");
  restoreLater(std::move(removed));
}

void Oracle::switchOff() {
  std::vector<int> timers;
  for (const auto& [key, timer] : watch_timers_) timers.push_back(timer);
  cancelTimers(std::move(timers));
  watch_timers_.clear();
  applied_.clear();
  const PIDs last_pids = std::exchange(last_pids_, {});
  if (known_.empty()) return;
  line(kBlock);
  line("[配置] 生效开关已关闭，已挂起守护进程并还原默认状态");
  std::vector<Target> released;
  for (const std::string& key : known_) {
    released.push_back({.key = key, .pid = pidIn(last_pids, key)});
  }
  known_.clear();
  restoreLater(std::move(released));
}

void Oracle::cancelTimers(std::vector<int> timers) {
  while (!timers.empty()) {
    auto next = std::find_if(timers.begin(), timers.end(),
                             [this](int id) { return observer_.isNext(cancelCall(id)); });
    if (next == timers.end()) next = timers.begin();
    cancelTimer(*next);
    timers.erase(next);
  }
}

void Oracle::restoreLater(std::vector<Target> targets) {
  for (Target& target : targets) {
    if (target.pid == 0) continue;
    target.line = "[恢复] 目标: " + target.key + " PID: " + std::to_string(target.pid);
  }
  queues_[kWorker].emplace_back([this, targets] {
    std::vector<Target> left = targets;
    while (!left.empty()) {
      const Target target = takeNext(left);
      record(target.key, 0, 0, 0);
      if (target.pid != 0) giveBack(target.key, target.pid);
    }
  });
}

// Watch timers and the patrol.

void Oracle::tick(const std::string& key, const Dictionary& settings, std::int32_t interval_s) {
  const std::int32_t pid = pidOf(key);
  const std::int32_t last_pid = pidIn(last_pids_, key);
  if (pid == last_pid && pid == 0) return;
  line(kBlock);
  if (pid == last_pid) {
    line("[守护] 目标: " + key + " | 检测: " + std::to_string(interval_s) +
         "s | PID: " + std::to_string(pid));
    apply(key, settings, pid);
    return;
  }
  line(pid != 0 ? startedLine(key, pid) : endedLine(key));
  if (pid != 0) {
    apply(key, settings, pid);
  } else {
    record(key, 0, 0, 0);
  }
  last_pids_[key] = pid;
}

void Oracle::patrol() {
  const std::optional<Targets> targets = configuredTargets();
  if (!targets || targets->empty()) return;
  line(kChapter);
  line("[守护] 开始执行 1800s ");
  queues_[kWorker].emplace_back([this, targets] { sweep(*targets); });
}

void Oracle::sweep(const Targets& targets) {
  const PIDs running = runningProcesses();
  std::vector<Target> covered;
  for (const auto& [key, settings] : targets) {
    if (intervalOf(settings) > 0) continue;
    const std::int32_t pid = pidIn(running, key);
    covered.push_back({.key = key, .settings = settings, .pid = pid});
    if (pid != 0) {
      covered.back().line = "[守护] " + key + " PID:" + std::to_string(pid) + " 完成";
    }
  }
  while (!covered.empty()) {
    const Target target = takeNext(covered);
    if (target.pid != 0) {
      apply(target.key, target.settings, target.pid);
    } else {
      record(target.key, 0, 0, 0);
    }
    queues_[kDebounce].emplace_back([this, target] { last_pids_[target.key] = target.pid; });
  }
  line("[全局守护] 1800s 周期巡检完成。");
  line(kChapter);
}

Oracle::Target Oracle::takeNext(std::vector<Target>& targets) {
  const auto is_called = [this](const Target& target) {
    return !target.call.empty() && observer_.isNext(target.call);
  };
  auto next = std::find_if(targets.begin(), targets.end(), is_called);
  if (next == targets.end()) {
    std::size_t nearest = std::string::npos;
    for (const Target& target : targets) {
      if (!target.line.empty()) nearest = std::min(nearest, observer_.distanceTo(target.line));
    }
    next = std::find_if(targets.begin(), targets.end(), [&](const Target& target) {
      if (target.line.empty()) return target.call.empty();
      return observer_.distanceTo(target.line) == nearest;
    });
  }
  if (next == targets.end()) next = targets.begin();
  Target taken = std::move(*next);
  targets.erase(next);
  return taken;
}

}  // namespace vorlatch::tests
