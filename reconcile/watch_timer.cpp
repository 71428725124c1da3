#include "reconcile/watch_timer.h"

#include "kernel/apply_limits.h"
#include "log/log_line.h"
#include "proc/process_lookup.h"
#include "reconcile/pass_state.h"
#include "reconcile/target_events.h"
#include "reconcile/work_queues.h"

namespace vorlatch {
namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
// A late tick does no harm, and the leeway lets the system combine wake-ups.
constexpr std::uint64_t kLeewayNs = kNsPerSecond;

void watchTimerTick(const std::string& key, const TargetSettings& settings)
    REQUIRES(kDebounceQueue) {
  const std::int32_t pid = getPIDForBundleID(key);
  auto& last_known_pids = passState().lastKnownPIDs;
  if (pid != pidIn(last_known_pids, key)) {
    handleChangedPID(key, settings, pid);
    last_known_pids[key] = pid;
  } else if (pid != 0) {
    // Applies the settings at every tick, because the system may have overridden them.
    writeTargetSeparator();
    writeLogLine("[%s] [守护] 目标: %s | 检测: %ds | PID: %d\n", key.c_str(),
                 settings.check_interval_s, pid);
    applyLimitsForApp(key, settings, pid);
  }
}

}  // namespace

platform::Timer startWatchTimer(const std::string& key, const TargetSettings& settings) {
  const std::uint64_t interval_ns =
      static_cast<std::uint64_t>(settings.check_interval_s) * kNsPerSecond;
  return platform::startTimer(
      debounceQueue(),
      {.start_ns = interval_ns, .interval_ns = interval_ns, .leeway_ns = kLeewayNs},
      [key, settings]() REQUIRES(kDebounceQueue) { watchTimerTick(key, settings); });
}

}  // namespace vorlatch
