// vorlatchctl match and ps
#include "cli/commands.h"
#include "cli/observation.h"
#include "cli/table.h"

namespace vorlatch::cli {
namespace {

std::string text(const std::optional<std::int32_t>& number) {
  return number ? std::to_string(*number) : "-";
}

struct Match {
  const RunningProcess* process;
  bool by_name;
  bool by_bundle_identifier;

  [[nodiscard]] const char* rule() const {
    if (by_name && by_bundle_identifier) return "name and bundle identifier";
    return by_name ? "name" : "bundle identifier";
  }
};

std::vector<Match> matchesOf(const Observation& observation, const std::string& key) {
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

}  // namespace

ExitStatus matchCommand(const Session& session, const std::string& key) {
  const Observation observation = Observation::now();
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
  Table table({"PID", "NAME", "BUNDLE IDENTIFIER", "FOUND BY", "CHOSEN BY"});
  for (const Match& match : matches) {
    const std::int32_t pid = match.process->pid;
    std::string chosen;
    if (pid == for_pass) chosen = pid == for_timer ? "pass, watch timer" : "pass";
    if (pid == for_timer && pid != for_pass) chosen = "watch timer";
    table.add({std::to_string(pid), match.process->name,
               match.process->bundle_identifier.value_or("-"), match.rule(),
               chosen.empty() ? "-" : chosen});
  }
  session.terminal.out(table.text(session.terminal));
  if (for_pass != for_timer) {
    printLine(session,
              "The two differ: among several processes a pass takes the first name and the last "
              "bundle identifier of the kernel's list, a watch timer the first of either.");
  }
  return kDone;
}

ExitStatus psCommand(const Session& session) {
  const Observation observation = Observation::now();
  Json processes = Json::array();
  Table table({"PID", "NAME", "BUNDLE IDENTIFIER", "BAND", "NICE", "LIMIT MB"});
  for (const RunningProcess& process : observation.processes) {
    const KernelSays now = observation.kernelSays(process.pid);
    if (session.wants_json) {
      processes.push_back({{"pid", process.pid},
                           {"name", process.name},
                           {"bundle_identifier", jsonOf(process.bundle_identifier)},
                           {"band", jsonOf(now.band)},
                           {"nice", jsonOf(now.nice_value)},
                           {"limit_mb", jsonOf(now.limit_mb)}});
    } else {
      table.add({std::to_string(process.pid), process.name, process.bundle_identifier.value_or("-"),
                 text(now.band), text(now.nice_value), text(now.limit_mb)});
    }
  }
  if (session.wants_json) {
    print(session, {{"processes", processes}});
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

}  // namespace vorlatch::cli
