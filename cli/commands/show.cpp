// vorlatchctl show
#include "cli/completion.h"
#include "cli/table.h"
#include "config/preferences.h"
#include "control/edits.h"
#include "control/kills.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"
#include "control/target_view.h"

namespace vorlatch::cli {
namespace {

std::string meaningOf(const std::string& key) {
  if (key == keys::kApplyAgain) return tr("how often vorlatchctl apply --again was used");
  const SettingKey* row = findSettingKey(key);
  return row != nullptr ? translated(row->meaning) : tr("unknown to the daemon");
}

std::string lastKillLine(const control::Kill& kill) {
  const std::string reason = control::reasonText(kill.process.reason);
  const std::string verdict = kill.verdict ? kill.verdict->text : "-";
  return tr("last kill: %s, %s: %s", control::timeText(kill), reason, verdict);
}

ExitStatus show(const Session& session, const std::string& target) {
  const auto preferences =
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName));
  const TargetDictionaries targets = appConfigs(preferences.dictionary);
  const auto entry = targets.find(target);
  if (entry == targets.end()) {
    std::vector<std::string> known;
    for (const auto& [key, settings] : targets) known.push_back(key);
    control::failUnknownTarget(known, target);
  }
  const auto observation = control::Observation::now(preferences.dictionary);
  const control::TargetView view =
      control::viewOf(observation, target, readTargetSettings(entry->second));
  control::KillFinder finder(false);
  const control::LastKills kills = control::lastKillsOfTargets(observation, finder);
  const auto last_kill = kills.find(target);
  if (session.wants_json) {
    control::AppNames names;
    print(session,
          {{"target", target},
           {"display_name", jsonOf(names.ofTarget(view))},
           {"settings", jsonOf(entry->second)},
           {"pid", view.pid != 0 ? Json(view.pid) : Json()},
           {"verdict", control::verdictCode(view.verdict)},
           {"verdict_text", control::verdictText(view.verdict)},
           {"memory", control::memoryJson(view.memory)},
           {"last_kill",
            last_kill != kills.end() ? control::killJson(last_kill->second, names) : Json()}});
    return kDone;
  }
  Table table({{.heading = english("KEY"), .is_typed = true},
               {.heading = english("VALUE")},
               {.heading = english("MEANING"), .rank = 1}});
  for (const auto& [key, value] : entry->second) {
    table.add({key, control::settingText(value), meaningOf(key)});
  }
  session.terminal.out(table.text(session.terminal));
  if (view.pid == 0) {
    printLine(session, control::verdictText(view.verdict));
  } else {
    printLine(session,
              tr("%s, runs as %s, memory MB %s", control::verdictText(view.verdict), view.pid,
                 control::memoryText(view.memory, session.terminal.is_terminal)));
  }
  if (last_kill != kills.end()) printLine(session, lastKillLine(last_kill->second));
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto target = std::make_shared<std::string>();
  arguments = {{.name = "TARGET",
                .description = english("the target"),
                .value = target.get(),
                .offer = configuredTargets,
                .is_required = true}};
  return [target](const Session& session) { return show(session, *target); };
}

const RegisteredCommand kShow({
    .name = "show",
    .description = english("one target's settings and what each means"),
    .examples = "  vorlatchctl show backboardd",
    .place = 30,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
