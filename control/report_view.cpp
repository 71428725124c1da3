#include "control/report_view.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "control/failure.h"
#include "control/kills.h"
#include "control/nearest.h"
#include "control/setting_views.h"
#include "control/target_names.h"
#include "control/translation.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kLargest = 20;
constexpr std::size_t kMostRows = 100;

bool isLarger(const ReportedProcess& a, const ReportedProcess& b) {
  return a.memory_bytes > b.memory_bytes;  // an unknown size is less than any other
}

ReportFile fileNamed(const std::string& name) {
  std::vector<std::string> known;
  for (ReportFile& file : findReportFiles(platform::crashReportDirectory())) {
    known.push_back(reportNameIn(file.path));
    if (name == file.path || name == known.back()) return std::move(file);
  }
  failWrongUsage(tr("there is no report %s; vorlatchctl kills names the reports%s", name,
                    suggestion(name, known)));
}

// Returns every process of the report, the largest first.
std::vector<ReportedProcess> allProcesses(JetsamReport& report) {
  std::vector<ReportedProcess> all = std::move(report.killed);
  all.insert(all.end(), std::move_iterator(report.left.begin()),
             std::move_iterator(report.left.end()));
  std::stable_sort(all.begin(), all.end(), isLarger);
  return all;
}

}  // namespace

void ReportView::Sum::add(const ReportedProcess& process) {
  ++processes;
  memory_bytes += process.memory_bytes.value_or(0);
}

ReportView readReportNamed(const std::string& name, const Observation& observation) {
  const ReportFile file = fileNamed(name);
  ReportView view;
  view.path = file.path;
  std::optional<JetsamReport> report = readReport(file, view.problems, WantedProcesses::All);
  if (!report) failCouldNot(problemText(view.problems.front()));
  view.time = report->time;
  view.free_bytes = report->free_bytes;
  KnownApps apps;
  TargetNames names(observation, apps);
  for (ReportedProcess& process : allProcesses(*report)) {
    view.all.add(process);
    const bool is_shown =
        view.rows.size() < kLargest || (!process.reason.empty() && view.rows.size() < kMostRows);
    if (!is_shown) {
      view.rest.add(process);
      continue;
    }
    const std::string* target = names.targetOf(process.name);
    view.rows.push_back(
        {.process = std::move(process), .target = target != nullptr ? *target : std::string()});
  }
  return view;
}

std::vector<std::string> reportNames() {
  std::vector<std::string> names;
  try {
    for (const ReportFile& file : findReportFiles(platform::crashReportDirectory())) {
      names.push_back(reportNameIn(file.path));
    }
  } catch (const Failure&) {
    return {};
  }
  return names;
}

std::string reportNameIn(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

Json reportJson(const ReportView& view) {
  const auto sum = [](const ReportView::Sum& processes) {
    return Json{{"processes", processes.processes}, {"memory_bytes", processes.memory_bytes}};
  };
  Json json{{"report", view.path},
            {"time", view.time ? Json(isoTextOf(*view.time)) : Json()},
            {"free_bytes", jsonOf(view.free_bytes)},
            {"all", sum(view.all)},
            {"processes", Json::array()},
            {"rest", sum(view.rest)},
            {"problems", problemsJson(view.problems)}};
  AppNames names;
  for (const ReportView::Row& row : view.rows) {
    json["processes"].push_back(processJson(row.process, row.target, names));
  }
  return json;
}

}  // namespace vorlatch::control
