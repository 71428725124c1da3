#include "control/plan.h"

#include "control/setting_views.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

std::string reasonFor(const TargetView& target) {
  if (target.pid == 0) return tr("does not run: nothing now, watched for");
  if (target.process == nullptr) return tr("runs as %s", target.pid);
  return isNamedBy(*target.process, target.key)
             ? tr("runs as %s, found by its name", target.pid)
             : tr("runs as %s, found by its bundle identifier", target.pid);
}

std::string afterwards(const TargetView& target) {
  return target.wanted.check_interval_s > 0
             ? tr("then again every %s s by its own timer", target.wanted.check_interval_s)
             : tr("then again every 1800 s by the patrol");
}

PlannedTarget planFor(const Observation& observation, const std::string& key,
                      const TargetSettings& settings) {
  TargetView target = viewOf(observation, key, settings);
  // A freshly started daemon has no status entries, so it uses what its first pass finds.
  const std::int32_t pid = observation.pidForPass(key);
  const bool is_held = target.written != nullptr && pid != 0 && target.written->pid == pid;
  if (target.pid != pid) {
    target.pid = pid;
    target.process = observation.process(pid);
    target.state = observeProcess(pid);
  }
  return {.key = key,
          .pid = pid,
          .reason = reasonFor(target),
          .steps = pid != 0 ? plannedSteps(target, observation.highestBand())
                            : std::vector<std::string>{},
          .afterwards = afterwards(target),
          .is_held = is_held};
}

}  // namespace

const char* const kUnknownToPlan = english(
    "What the kernel will accept, and what the running daemon remembers of settings that it "
    "applied before, cannot be known from here: the running daemon passes over a target whose "
    "settings and process have not changed since.");

std::vector<PlannedTarget> planOf(const Observation& observation) {
  std::vector<PlannedTarget> plan;
  for (const auto& [key, target] : observation.targets) {
    plan.push_back(planFor(observation, key, target.settings));
  }
  return plan;
}

}  // namespace vorlatch::control
