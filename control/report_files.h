// Finds and reads the system's reports of ended processes.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "control/jetsam_report.h"

namespace vorlatch::control {

struct ReportFile {
  std::string path;
  // The name without its endings: JetsamEvent-2026-11-22-151528. The system adds endings to the
  // name when it moves a report.
  std::string stem;
  std::optional<Moment> named_time;  // the time in the name, as of the local zone
};

// Returns the reports in the folder and in its direct subfolders, the newest by name first, at most
// 2000. A missing folder has none. Throws a Failure if the folder cannot be read.
std::vector<ReportFile> findReportFiles(const std::string& folder);

// A file with a report's name that gave no report, or not a whole one.
struct ReportProblem {
  enum class Kind { Unreadable, NoReport, Incomplete };
  std::string path;
  Kind kind;
};

// Returns the problem's word for programs, which never changes: "no-report".
const char* problemCode(ReportProblem::Kind kind);
// Returns a line for people.
std::string problemText(const ReportProblem& problem);
nlohmann::ordered_json problemsJson(const std::vector<ReportProblem>& problems);

// Returns std::nullopt if the file is no regular file, a link, longer than a report may be, or
// holds no report. Adds to `problems` what is wrong.
std::optional<JetsamReport> readReport(const ReportFile& file, std::vector<ReportProblem>& problems,
                                       WantedProcesses wanted = WantedProcesses::Killed);

}  // namespace vorlatch::control
