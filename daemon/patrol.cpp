#include "daemon/patrol.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "config/preferences.h"
#include "config/status_file.h"
#include "kernel/apply_limits.h"
#include "log/log_line.h"
#include "platform/queues.h"
#include "proc/process_lookup.h"
#include "reconcile/pass_state.h"
#include "reconcile/work_queues.h"

namespace vorlatch {
namespace {

constexpr std::uint64_t kPatrolIntervalNs = 1'800'000'000'000;
constexpr std::uint64_t kLeewayNs = 5'000'000'000;

using PatrolTargets = std::vector<std::pair<std::string, TargetSettings>>;

// Drops the stored dictionaries, because only the pass compares them.
PatrolTargets patrolTargets(Targets targets) {
  PatrolTargets settings;
  settings.reserve(targets.size());
  while (!targets.empty()) {
    auto target = targets.extract(targets.begin());
    settings.emplace_back(std::move(target.key()), target.mapped().settings);
  }
  return settings;
}

// Sends the process id that the patrol saw to the pass state, for the pass and the watch timers.
void recordPatrolPID(const std::string& key, std::int32_t pid) {
  platform::async(debounceQueue(),
                  [key, pid]() REQUIRES(kDebounceQueue) { passState().lastKnownPIDs[key] = pid; });
}

// Applies settings and updates status entries. Does not restore defaults or change watch timers.
void patrolSweep(const PatrolTargets& targets) REQUIRES(kWorkerQueue) {
  const RunningProcessMap running = getRunningProcessMap();
  for (const auto& [key, settings] : targets) {
    if (settings.check_interval_s > 0) continue;  // its watch timer applies them
    const std::int32_t pid = pidIn(running, key);
    if (pid != 0) {
      applyLimitsForApp(key, settings, pid);
    } else {
      removeStatusEntry(key);
    }
    recordPatrolPID(key, pid);
  }
  writeLogLine("[%s] [全局守护] 1800s 周期巡检完成。\n");
  writeChapterSeparator();
}

}  // namespace

void patrolTick() {
  plist::Dictionary preferences = loadPreferences();
  if (!isEnabled(preferences)) return;
  PatrolTargets targets = patrolTargets(configuredTargets(std::move(preferences)));
  if (targets.empty()) return;
  writeChapterSeparator();
  writeLogLine("[%s] [守护] 开始执行 1800s \n");
  platform::async(workerQueue(), [targets = std::move(targets)]()
                                     REQUIRES(kWorkerQueue) { patrolSweep(targets); });
}

void setupGlobal1800sTimer() {
  makeWorkQueues();
  // Created once and kept for the life of the process.
  static platform::Timer& timer = *new platform::Timer(platform::startTimer(
      debounceQueue(),
      {.start_ns = kPatrolIntervalNs, .interval_ns = kPatrolIntervalNs, .leeway_ns = kLeewayNs},
      patrolTick));
  static_cast<void>(timer);
}

}  // namespace vorlatch
