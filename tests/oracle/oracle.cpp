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

std::string cancelCall(int timer) {
  return "cancelTimer(timer " + std::to_string(timer) + ")";
}

}  // namespace

// Scheduling: which work runs when, and on which queue.

void Oracle::started() {
  daemon_.opensLog();
  line(kChapter);
  if (daemon_.findsNoPreferences()) {
    daemon_.writesPreset(preset());
    line("[配置] 已生成默认预设参数");
  }
  protectItself();
  daemon_.schedules("makeSerialQueue(\"" + kDebounce + "\")");
  daemon_.schedules("makeSerialQueue(\"" + kWorker + "\")");
  queues_[kDebounce].emplace_back([this] { arm(); });
  startTimer(1800 * kSecond, 1800 * kSecond, 5 * kSecond, [this] { patrol(); });
  daemon_.schedules("observeNotification(\"com.zel.vorlatch/ApplyLimits\")");
  daemon_.schedules("runMainLoop()");
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
  for (const auto& [queue, sent] : queues_) {
    if (!sent.empty()) throw Mismatch("work was left over on " + queue);
  }
  for (const auto& [id, timer] : timers_) {
    if (timer.due_ns < now_ns) throw Mismatch("timer " + std::to_string(id) + " did not tick");
  }
}

int Oracle::startTimer(std::uint64_t start_ns, std::uint64_t interval_ns, std::uint64_t leeway_ns,
                       std::function<void()> tick) {
  const int id = ++last_timer_;
  const std::uint64_t now_ns =
      daemon_.schedules(text("startTimer(", kDebounce, ", ", start_ns, ", ", timeText(interval_ns),
                             ", ", leeway_ns, ") = timer ", id));
  timers_[id] = {.due_ns = now_ns + start_ns, .interval_ns = interval_ns, .tick = std::move(tick)};
  return id;
}

void Oracle::cancelTimer(int id) {
  daemon_.schedules(cancelCall(id));
  timers_.erase(id);
}

void Oracle::cancelWatchTimer(const std::string& key) {
  if (const auto timer = watch_timers_.extract(key)) cancelTimer(timer.mapped());
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
  for (const auto& [key, settings] : *configured) reconcile(key, settings, pidIn(running, key));
}

void Oracle::reconcile(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  const bool changed = !applied_.contains(key) || settings != applied_.at(key);
  const bool same_pid = pid == pidIn(last_pids_, key);
  if (!changed && same_pid) return;
  applied_[key] = settings;
  last_pids_[key] = pid;
  known_.insert(key);
  if (!same_pid) {
    switchTo(key, settings, pid);
  } else if (pid != 0) {
    line(kBlock);
    line("[配置] 目标: ", key, " PID: ", pid);
    apply(key, settings, pid);
  }
  cancelWatchTimer(key);
  if (const std::int32_t interval_s = intervalOf(settings); interval_s > 0) {
    const auto interval_ns = static_cast<std::uint64_t>(interval_s) * kSecond;
    watch_timers_[key] =
        startTimer(interval_ns, interval_ns, kSecond,
                   [this, key, settings, interval_s] { tick(key, settings, interval_s); });
  }
}

// The target's process started, exited, or is another one.
void Oracle::switchTo(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  line(kBlock);
  if (pid != 0) {
    line("[进程] 目标: ", key, " 已启动 PID: ", pid, " ");
    apply(key, settings, pid);
  } else {
    line("[进程] 目标: ", key, " 已退出");
    record(key, 0, 0, 0);
  }
}

void Oracle::restoreRemoved(const Targets& configured) {
  std::vector<Target> removed;
  for (const std::string& key : known_) {
    if (!configured.contains(key)) removed.push_back({.key = key, .pid = pidIn(last_pids_, key)});
  }
  if (removed.empty()) return;
  for (const Target& target : removed) {
    cancelWatchTimer(target.key);
    applied_.erase(target.key);
    known_.erase(target.key);
    last_pids_.erase(target.key);
  }
  line(kBlock);
  line("[配置] 已有进程从列表移除，已恢复默认");
  restoreLater(std::move(removed));
}

void Oracle::switchOff() {
  // All at once, so in any order.
  while (!watch_timers_.empty()) {
    auto next = std::find_if(watch_timers_.begin(), watch_timers_.end(), [this](const auto& timer) {
      return daemon_.isNext(cancelCall(timer.second));
    });
    if (next == watch_timers_.end()) next = watch_timers_.begin();
    cancelWatchTimer(next->first);
  }
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

void Oracle::restoreLater(std::vector<Target> targets) {
  queues_[kWorker].emplace_back([this, targets = std::move(targets)] {
    for (const Target& target : targets) {
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
  if (pid == last_pid) {
    line(kBlock);
    line("[守护] 目标: ", key, " | 检测: ", interval_s, "s | PID: ", pid);
    apply(key, settings, pid);
    return;
  }
  switchTo(key, settings, pid);
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
  for (const auto& [key, settings] : targets) {
    if (intervalOf(settings) > 0) continue;
    const std::int32_t pid = pidIn(running, key);
    if (pid != 0) {
      apply(key, settings, pid);
    } else {
      record(key, 0, 0, 0);
    }
    queues_[kDebounce].emplace_back([this, key = key, pid] { last_pids_[key] = pid; });
  }
  line("[全局守护] 1800s 周期巡检完成。");
  line(kChapter);
}

}  // namespace vorlatch::tests
