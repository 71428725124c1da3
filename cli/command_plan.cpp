// vorlatchctl plan
#include "cli/bands.h"
#include "cli/commands.h"
#include "cli/preferences_edit.h"
#include "cli/settings_schema.h"
#include "cli/verdict.h"
#include "kernel/judgement.h"

namespace vorlatch::cli {
namespace {

// What would be done to one target, a step a line, in the order in which the daemon does it.
std::vector<std::string> stepsFor(const TargetView& target, const Observation& observation) {
  const TargetSettings& wanted = target.wanted;
  std::vector<std::string> steps;
  const auto limit = [](std::int32_t limit_mb) {
    return limit_mb < 1 ? std::string("the system's default")
                        : std::to_string(limit_mb) + " MB, fatal";
  };
  steps.push_back("set the memory limits: active " + limit(wanted.active_limit_mb) + ", inactive " +
                  limit(wanted.inactive_limit_mb));
  const std::string nice_value = std::to_string(wanted.nice_value);
  if (!target.now.nice_value) {
    steps.push_back("read the nice value, and set it to " + nice_value + " unless it is that");
  } else if (*target.now.nice_value == wanted.nice_value) {
    steps.push_back("leave the nice value, which is " + nice_value);
  } else {
    steps.push_back("set the nice value from " + std::to_string(*target.now.nice_value) + " to " +
                    nice_value);
  }
  if (wanted.jetsam_priority == -1) {
    steps.emplace_back("leave the jetsam band");
  } else if (wanted.jetsam_priority == 0) {
    steps.emplace_back("return the process to the system's management, and its band to idle");
  } else {
    std::string step = "mark the process as unmanaged and set jetsam band " +
                       std::to_string(wanted.jetsam_priority);
    const std::optional<std::int32_t> adapted = adaptedBand(wanted.jetsam_priority);
    const bool may_be_refused = wanted.jetsam_priority > observation.highestBand().value_or(0);
    if (adapted && may_be_refused) step += "; if refused, band " + std::to_string(*adapted);
    steps.push_back(step);
  }
  if (wanted.strips_managed) {
    steps.emplace_back(*wanted.strips_managed
                           ? "take it out of the system's management, not freezable, elevated"
                           : "give it back to the system's management, freezable, not elevated");
  }
  return steps;
}

std::string reasonFor(const TargetView& target) {
  if (target.pid == 0) return "does not run: nothing now, watched for";
  std::string reason = "runs as " + std::to_string(target.pid);
  if (target.process != nullptr) {
    reason += isNamedBy(*target.process, target.key) ? ", found by its name"
                                                     : ", found by its bundle identifier";
  }
  return reason;
}

std::string afterwards(const TargetView& target) {
  return target.wanted.check_interval_s > 0
             ? "then again every " + std::to_string(target.wanted.check_interval_s) +
                   " s by its own timer"
             : "then again every 1800 s by the patrol";
}

constexpr const char* kUnknown =
    "What the kernel will accept, and what the running daemon remembers of settings that it "
    "applied before, cannot be known from here: the running daemon passes over a target whose "
    "settings and process have not changed since.";

struct Plan {
  TargetView target;
  std::vector<std::string> steps;
  bool is_held;
};

Plan planFor(const Observation& observation, const std::string& key,
             const TargetSettings& settings) {
  // A freshly started daemon has written nothing: its first pass chooses.
  Plan plan{.target = viewOf(observation, key, settings), .steps = {}, .is_held = false};
  TargetView& target = plan.target;
  const std::int32_t pid = observation.pidForPass(key);
  plan.is_held = target.written != nullptr && pid != 0 && target.written->pid == pid;
  if (target.pid != pid) {
    target.pid = pid;
    target.process = observation.process(pid);
    target.now = observation.kernelSays(pid);
  }
  if (pid != 0) plan.steps = stepsFor(target, observation);
  return plan;
}

Json jsonOfPlan(const Plan& plan) {
  return {{"target", plan.target.key},
          {"pid", plan.target.pid},
          {"reason", reasonFor(plan.target)},
          {"steps", plan.steps},
          {"afterwards", afterwards(plan.target)},
          {"held_already", plan.is_held}};
}

void show(const Session& session, const Plan& plan) {
  printLine(session, plan.target.key + ": " + reasonFor(plan.target) +
                         (plan.is_held ? " (held already)" : ""));
  for (const std::string& step : plan.steps) printLine(session, "  " + step);
  printLine(session, "  " + afterwards(plan.target));
}

}  // namespace

ExitStatus planCommand(const Session& session) {
  const Observation observation =
      Observation::now(readStoredPreferences(daemonFile(kPreferencesFileName)).dictionary);
  std::vector<Plan> plans;
  for (const auto& [key, target] : observation.targets) {
    plans.push_back(planFor(observation, key, target.settings));
  }
  if (session.wants_json) {
    Json targets = Json::array();
    for (const Plan& plan : plans) targets.push_back(jsonOfPlan(plan));
    print(session,
          {{"enabled", observation.isSwitchedOn()}, {"targets", targets}, {"unknown", kUnknown}});
    return kDone;
  }
  if (!observation.isSwitchedOn()) {
    printLine(session, "Switched off: the daemon would do nothing. Switched on, it would:");
  }
  if (plans.empty()) printLine(session, "no targets");
  for (const Plan& plan : plans) show(session, plan);
  printLine(session, kUnknown);
  return kDone;
}

}  // namespace vorlatch::cli
