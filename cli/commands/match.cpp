// vorlatchctl match
#include "cli/completion.h"
#include "cli/table.h"
#include "control/observation.h"

namespace vorlatch::cli {
namespace {

struct Match {
  const RunningProcess* process;
  bool by_name;
  bool by_bundle_identifier;

  [[nodiscard]] const char* rule() const {
    if (by_name && by_bundle_identifier) return english("name and bundle identifier");
    return by_name ? english("name") : english("bundle identifier");
  }
};

std::vector<Match> matchesOf(const control::Observation& observation, const std::string& key) {
  std::vector<Match> matches;
  for (const RunningProcess& process : observation.processes) {
    const Match match{.process = &process,
                      .by_name = isNamedBy(process, key),
                      .by_bundle_identifier = isIdentifiedBy(process, key)};
    if (match.by_name || match.by_bundle_identifier) matches.push_back(match);
  }
  return matches;
}

Json jsonOfMatch(const Match& match) {
  return {{"pid", match.process->pid},
          {"name", match.process->name},
          {"bundle_identifier", jsonOf(match.process->bundle_identifier)},
          {"rule", match.rule()}};
}

ExitStatus showMatches(const Session& session, const std::string& key) {
  const control::Observation observation = control::Observation::now();
  const std::vector<Match> matches = matchesOf(observation, key);
  const std::int32_t for_pass = observation.pidForPass(key);
  const std::int32_t for_timer = observation.pidForWatchTimer(key);
  if (session.wants_json) {
    Json processes = Json::array();
    for (const Match& match : matches) processes.push_back(jsonOfMatch(match));
    print(session, {{"text", key},
                    {"pid_for_pass", for_pass},
                    {"pid_for_watch_timer", for_timer},
                    {"processes", processes}});
    return kDone;
  }
  if (matches.empty()) {
    printLine(session, "no running process has this name or bundle identifier");
    return kDone;
  }
  Table table({{.heading = english("PID")},
               {.heading = english("NAME"), .is_typed = true},
               {.heading = english("BUNDLE IDENTIFIER"), .is_typed = true},
               {.heading = english("FOUND BY"), .rank = 2},
               {.heading = english("CHOSEN BY"), .rank = 1}});
  for (const Match& match : matches) {
    const std::int32_t pid = match.process->pid;
    std::string chosen;
    if (pid == for_pass) chosen = pid == for_timer ? tr("pass, watch timer") : tr("pass");
    if (pid == for_timer && pid != for_pass) chosen = tr("watch timer");
    table.add({std::to_string(pid), match.process->name,
               match.process->bundle_identifier.value_or("-"), translated(match.rule()),
               chosen.empty() ? "-" : chosen});
  }
  session.terminal.out(table.text(session.terminal));
  if (for_pass != for_timer) {
    printLine(session,
              tr("The two differ: among several processes a pass takes the first name and the last "
                 "bundle identifier of the kernel's list, a watch timer the first of either."));
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto text = std::make_shared<std::string>();
  arguments = {{.name = "TEXT",
                .description = english("a bundle identifier or process name"),
                .value = text.get(),
                .offer = runningNames,
                .is_required = true}};
  return [text](const Session& session) { return showMatches(session, *text); };
}

const RegisteredCommand kMatch({
    .name = "match",
    .description = english("which running process a text finds, and by which rule"),
    .examples = "  vorlatchctl match com.apple.Preferences",
    .place = 130,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
