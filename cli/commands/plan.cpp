// vorlatchctl plan
#include "control/plan.h"

#include "cli/command.h"
#include "config/preferences.h"
#include "control/preferences_edit.h"

namespace vorlatch::cli {
namespace {

using control::PlannedTarget;

Json jsonOfTarget(const PlannedTarget& target) {
  return {{"target", target.key},
          {"pid", target.pid},
          {"reason", target.reason},
          {"steps", target.steps},
          {"afterwards", target.afterwards},
          {"held_already", target.is_held}};
}

void show(const Session& session, const PlannedTarget& target) {
  printLine(session, target.key + ": " +
                         (target.is_held ? tr("%s (held already)", target.reason) : target.reason));
  for (const std::string& step : target.steps) printLine(session, "  " + step);
  printLine(session, "  " + target.afterwards);
}

ExitStatus plan(const Session& session) {
  const auto observation = control::Observation::now(
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName)).dictionary);
  const std::vector<PlannedTarget> targets = control::planOf(observation);
  if (session.wants_json) {
    Json list = Json::array();
    for (const PlannedTarget& target : targets) list.push_back(jsonOfTarget(target));
    print(session, {{"enabled", observation.isSwitchedOn()},
                    {"targets", list},
                    {"unknown", translated(control::kUnknownToPlan)}});
    return kDone;
  }
  if (!observation.isSwitchedOn()) {
    printLine(session, tr("Switched off: the daemon would do nothing. Switched on, it would:"));
  }
  if (targets.empty()) printLine(session, tr("no targets"));
  for (const PlannedTarget& target : targets) show(session, target);
  printLine(session, translated(control::kUnknownToPlan));
  return kDone;
}

const RegisteredCommand kPlan({
    .name = "plan",
    .description = english("what a freshly started daemon would do to each target, and why"),
    .examples = "  vorlatchctl plan",
    .place = 120,
    .prepare = [](Arguments&) { return Run(plan); },
});

}  // namespace
}  // namespace vorlatch::cli
