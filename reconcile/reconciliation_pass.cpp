#include "reconcile/reconciliation_pass.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "config/log_size_cap.h"
#include "config/preferences.h"
#include "kernel/apply_limits.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "proc/process_lookup.h"
#include "reconcile/pass_state.h"
#include "reconcile/restore_targets.h"
#include "reconcile/target_events.h"
#include "reconcile/watch_timer.h"

namespace vorlatch {
namespace {

// Handles switched-off preferences: clears the pass state and restores every known target.
void releaseEverything(PassState& state) REQUIRES(kDebounceQueue) {
  state.targetTimers.clear();
  state.lastAppliedConfigs.clear();
  const auto known_targets = std::exchange(state.knownTargets, {});
  const auto last_known_pids = std::exchange(state.lastKnownPIDs, {});
  if (known_targets.empty()) return;
  writeTargetSeparator();
  writeLogLine("[%s] [配置] 生效开关已关闭，已挂起守护进程并还原默认状态\n");
  std::vector<RestoreTarget> released;
  released.reserve(known_targets.size());
  for (const std::string& key : known_targets) {
    released.push_back({.key = key, .pid = pidIn(last_known_pids, key)});
  }
  restoreTargets(std::move(released));
}

void releaseRemovedTargets(PassState& state, const Targets& targets) REQUIRES(kDebounceQueue) {
  std::vector<RestoreTarget> removed;
  auto configured = targets.begin();
  for (const std::string& key : state.knownTargets) {  // in key order, as are the targets
    while (configured != targets.end() && configured->first < key) ++configured;
    if (configured != targets.end() && configured->first == key) continue;
    removed.push_back({.key = key, .pid = pidIn(state.lastKnownPIDs, key)});
  }
  if (removed.empty()) return;
  for (const RestoreTarget& target : removed) {
    state.targetTimers.erase(target.key);
    state.lastAppliedConfigs.erase(target.key);
    state.knownTargets.erase(target.key);
    state.lastKnownPIDs.erase(target.key);
  }
  writeTargetSeparator();
  writeLogLine("[%s] [配置] 已有进程从列表移除，已恢复默认\n");
  restoreTargets(std::move(removed));
}

void reconcileTarget(PassState& state, const std::string& key, const ConfiguredTarget& target,
                     std::int32_t pid) REQUIRES(kDebounceQueue) {
  const auto last_applied = state.lastAppliedConfigs.find(key);
  const bool changed =
      last_applied == state.lastAppliedConfigs.end() || target.stored_form != last_applied->second;
  const bool same_pid = pid == pidIn(state.lastKnownPIDs, key);
  if (!changed && same_pid) return;

  // Records the new state before applying anything, so that the next pass does not apply this
  // target again if a step fails.
  state.lastAppliedConfigs.insert_or_assign(key, target.stored_form);
  state.lastKnownPIDs[key] = pid;
  state.knownTargets.insert(key);

  if (!same_pid) {
    handleChangedPID(key, target.settings, pid);
  } else if (pid != 0) {
    writeTargetSeparator();
    writeLogLine("[%s] [配置] 目标: %s PID: %d\n", key.c_str(), pid);
    applyLimitsForApp(key, target.settings, pid);
  }

  state.targetTimers.erase(key);
  if (target.settings.check_interval_s > 0) {
    state.targetTimers.emplace(key, startWatchTimer(key, target.settings));
  }
}

}  // namespace

void executeMemoryLimits() {
  checkLogSizeAndClearIfNeeded();
  PassState& state = passState();
  plist::Dictionary preferences = loadPreferences();
  if (!isEnabled(preferences)) {
    releaseEverything(state);
    return;
  }
  const Targets targets = configuredTargets(std::move(preferences));
  releaseRemovedTargets(state, targets);
  if (targets.empty()) return;
  const RunningProcessMap running = getRunningProcessMap();
  for (const auto& [key, target] : targets) {
    reconcileTarget(state, key, target, pidIn(running, key));
  }
}

}  // namespace vorlatch
