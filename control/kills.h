// The processes that the system ended for their memory, newest first, and what that says about the
// targets.
#pragma once

#include <cstddef>
#include <ctime>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "control/app_names.h"
#include "control/kill_verdict.h"
#include "control/observation.h"
#include "control/report_files.h"
#include "control/target_names.h"

namespace vorlatch::control {

struct Kill {
  ReportedProcess process;
  std::optional<Moment> time;
  std::string report;                  // path
  std::string target;                  // empty: of no target
  std::optional<KillVerdict> verdict;  // empty: of no target
  // The daemon's log lines of that time that say that the target exited, with their stamps.
  std::vector<std::string> log_lines;
};

struct KillQuery {
  std::string target;                 // a target or a process name; empty: every kill
  std::optional<std::int64_t> since;  // seconds since 1970; empty: every time
  std::size_t most_reports = std::numeric_limits<std::size_t>::max();
};

struct KillList {
  std::vector<Kill> kills;  // at most 10000
  std::size_t reports = 0;  // how many there are, read or not
  std::vector<ReportProblem> problems;
};

// Finds kills. An object that is used again keeps what it read, unless `keeps_reports` is false.
class KillFinder {
 public:
  explicit KillFinder(bool keeps_reports) : keeps_reports_(keeps_reports) {}

  // Throws a Failure if the folder of the reports cannot be read, or if the query's target is
  // neither configured, nor running, nor in a report.
  KillList find(const Observation& observation, const KillQuery& query);

 private:
  struct Kept {
    std::int64_t bytes;
    std::time_t written;  // zero if unknown, as the size is
    std::optional<JetsamReport> report;
    std::vector<ReportProblem> problems;
  };
  const Kept& read(const ReportFile& file, std::map<std::string, Kept>& kept);

  const bool keeps_reports_;
  std::map<std::string, Kept> kept_;  // by path
  KnownApps apps_;
};

// Adds to each kill of a target the lines of the daemon's log, within ten seconds of the kill, that
// say that the target exited. Adds nothing if the log cannot be read.
void addLogLines(std::vector<Kill>& kills);

// Returns each target's last kill in the newest 20 reports, by target. A process that two targets
// name counts for the first. Returns none if the reports cannot be read.
using LastKills = std::map<std::string, Kill>;
LastKills lastKillsOfTargets(const Observation& observation, KillFinder& finder);

// Returns "2026-11-22 15:15:28", or "-" if the time is unknown.
std::string timeText(const Kill& kill);
nlohmann::ordered_json killJson(const Kill& kill, AppNames& names);
// Returns what a report says of a process; `target` is empty if it is of no target.
nlohmann::ordered_json processJson(const ReportedProcess& process, const std::string& target,
                                   AppNames& names);

}  // namespace vorlatch::control
