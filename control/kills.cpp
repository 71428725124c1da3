#include "control/kills.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <set>
#include <utility>

#include "control/failure.h"
#include "control/log_reader.h"
#include "control/nearest.h"
#include "control/preferences_edit.h"
#include "control/setting_views.h"
#include "control/translation.h"
#include "log/log_file.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kMostKills = 10'000;
constexpr std::size_t kNewestReports = 20;
constexpr std::size_t kMostExits = 10'000;
constexpr std::int64_t kLogDistanceSeconds = 10;
// The clock in a report's name may be of another zone, and a report is written after its kills.
constexpr std::int64_t kNameDistanceSeconds = std::int64_t{2} * 24 * 3600;

bool isNewerKill(const Kill& a, const Kill& b) {
  if (!a.time || !b.time) return a.time && !b.time;
  return a.time->seconds > b.time->seconds;
}

// A line of the log that says that a target exited.
struct ExitLine {
  std::string target;
  std::string stamp;
  std::string text;
};

// Returns the last ones of the log.
std::deque<ExitLine> exitLines() {
  static constexpr std::string_view kTarget = "目标: ";
  static constexpr std::string_view kExited = " 已退出";
  std::deque<ExitLine> lines;
  LogReader(daemonFile(kLogFileName)).readNew([&lines](LogLine line) {
    const std::string_view text = line.text;
    if (!text.starts_with(kTarget) || !text.ends_with(kExited)) return;
    if (text.size() < kTarget.size() + kExited.size()) return;
    const std::string_view target =
        text.substr(kTarget.size(), text.size() - kTarget.size() - kExited.size());
    lines.push_back(
        {.target = std::string(target), .stamp = line.stamp, .text = std::move(line.text)});
    if (lines.size() > kMostExits) lines.pop_front();
  });
  return lines;
}

// The stamp has no year, so it may be of the year after or before the kill's, at New Year.
bool isNear(const std::string& stamp, const Moment& moment) {
  constexpr std::array<std::int32_t, 3> kYears = {0, 1, -1};
  return std::ranges::any_of(kYears, [&](std::int32_t years) {
    const auto seconds = localSecondsOf(stamp, yearOf(moment) + years);
    return seconds && std::abs(*seconds - moment.localSeconds()) <= kLogDistanceSeconds;
  });
}

// Copies of a report, for example in a subfolder, have its name and its identifier.
class SeenReports {
 public:
  bool isNew(const ReportFile& file, const JetsamReport& report) {
    return report.incident.empty() || seen_.emplace(file.stem, report.incident).second;
  }

 private:
  std::set<std::pair<std::string, std::string>> seen_;
};

Kill killOf(const ReportedProcess& process, const JetsamReport& report, const ReportFile& file,
            const Observation& observation, const std::string* target) {
  Kill kill{.process = process,
            .time = report.time,
            .report = file.path,
            .target = target != nullptr ? *target : "",
            .verdict = {},
            .log_lines = {}};
  if (target != nullptr) {
    kill.verdict = judgeKill(process, report, observation.targets.find(*target)->second.settings);
  }
  return kill;
}

void failUnlessKnown(const Observation& observation, const std::string& target) {
  const bool is_known =
      observation.targets.contains(target) ||
      std::any_of(observation.processes.begin(), observation.processes.end(),
                  [&target](const RunningProcess& process) { return isFoundBy(process, target); });
  if (is_known) return;
  std::vector<std::string> known;
  for (const auto& [key, settings] : observation.targets) known.push_back(key);
  failWrongUsage(tr("no target %s is configured, and no report of such a process was found%s",
                    target, suggestion(target, known)));
}

}  // namespace

const KillFinder::Kept& KillFinder::read(const ReportFile& file,
                                         std::map<std::string, Kept>& kept) {
  struct stat status {};
  ::lstat(file.path.c_str(), &status);
  const std::int64_t bytes = status.st_size;
  const std::time_t written = status.st_mtime;
  const auto before = kept_.find(file.path);
  if (before != kept_.end() && before->second.bytes == bytes && before->second.written == written) {
    return kept.insert(kept_.extract(before)).position->second;
  }
  Kept now{.bytes = bytes, .written = written, .report = {}, .problems = {}};
  now.report = readReport(file, now.problems);
  if (!keeps_reports_) kept.clear();
  return kept.insert_or_assign(file.path, std::move(now)).first->second;
}

KillList KillFinder::find(const Observation& observation, const KillQuery& query) {
  KillList list;
  std::vector<ReportFile> files = findReportFiles(platform::crashReportDirectory());
  list.reports = files.size();
  if (files.size() > query.most_reports) files.resize(query.most_reports);
  TargetNames names(observation, apps_);
  SeenReports seen;
  std::map<std::string, Kept> kept;
  const bool is_target = observation.targets.contains(query.target);
  for (const ReportFile& file : files) {
    if (query.since && file.named_time &&
        file.named_time->seconds + kNameDistanceSeconds < *query.since) {
      continue;
    }
    const Kept& read_report = read(file, kept);
    list.problems.insert(list.problems.end(), read_report.problems.begin(),
                         read_report.problems.end());
    const auto& report = read_report.report;
    if (!report || !seen.isNew(file, *report)) continue;
    if (query.since && (!report->time || report->time->seconds < *query.since)) continue;
    for (const ReportedProcess& process : report->killed) {
      if (list.kills.size() == kMostKills) break;
      if (!query.target.empty() && !names.isProcessOf(query.target, process.name)) continue;
      const std::string* target = is_target ? &query.target : names.targetOf(process.name);
      list.kills.push_back(killOf(process, *report, file, observation, target));
    }
  }
  if (keeps_reports_) kept_ = std::move(kept);
  std::stable_sort(list.kills.begin(), list.kills.end(), isNewerKill);
  if (!query.target.empty() && list.kills.empty()) failUnlessKnown(observation, query.target);
  return list;
}

void addLogLines(std::vector<Kill>& kills) {
  std::deque<ExitLine> lines;
  try {
    lines = exitLines();
  } catch (const Failure&) {
    return;
  }
  for (Kill& kill : kills) {
    if (kill.target.empty() || !kill.time) continue;
    for (const ExitLine& line : lines) {
      if (line.target != kill.target || !isNear(line.stamp, *kill.time)) continue;
      kill.log_lines.push_back("[" + line.stamp + "] " + line.text);
    }
  }
}

LastKills lastKillsOfTargets(const Observation& observation, KillFinder& finder) {
  LastKills last;
  try {
    const KillQuery newest{.target = "", .since = {}, .most_reports = kNewestReports};
    for (Kill& kill : finder.find(observation, newest).kills) {
      if (!kill.target.empty()) last.emplace(kill.target, std::move(kill));
    }
  } catch (const Failure&) {
    last.clear();
  }
  return last;
}

std::string timeText(const Kill& kill) {
  return kill.time ? textOf(*kill.time) : "-";
}

Json processJson(const ReportedProcess& process, const std::string& target, AppNames& names) {
  const bool was_ended = !process.reason.empty();
  return {{"process", process.name},
          {"display_name", jsonOf(names.ofReported(process.name, target))},
          {"pid", jsonOf(process.pid)},
          {"target", target.empty() ? Json() : Json(target)},
          {"memory_bytes", jsonOf(process.memory_bytes)},
          {"highest_bytes", jsonOf(process.highest_bytes)},
          {"band", jsonOf(process.band)},
          {"states", process.states},
          {"reason", was_ended ? Json(process.reason) : Json()},
          {"reason_text", was_ended ? Json(reasonText(process.reason)) : Json()}};
}

Json killJson(const Kill& kill, AppNames& names) {
  Json json{{"time", kill.time ? Json(isoTextOf(*kill.time)) : Json()}};
  json.update(processJson(kill.process, kill.target, names));
  json["verdict"] = kill.verdict ? Json(kill.verdict->code) : Json();
  json["verdict_text"] = kill.verdict ? Json(kill.verdict->text) : Json();
  json["report"] = kill.report;
  return json;
}

}  // namespace vorlatch::control
