#include "control/report_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/files.h"
#include "control/failure.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

constexpr std::string_view kBeginning = "JetsamEvent-";
constexpr std::string_view kEnding = ".ips";
constexpr std::size_t kMostReports = 2000;
constexpr std::size_t kMostSubfolders = 100;
constexpr std::size_t kMostEntries = 50'000;  // of a folder

// Reads the time in "JetsamEvent-2026-11-22-151528".
std::optional<Moment> timeInStem(const std::string& stem) {
  constexpr std::size_t kTimeLength = 17;
  const std::string time = stem.substr(kBeginning.size());
  if (time.size() < kTimeLength) return std::nullopt;
  return momentIn(time.substr(0, 10) + " " + time.substr(11, 2) + ":" + time.substr(13, 2) + ":" +
                  time.substr(15, 2));
}

bool isNewer(const ReportFile& a, const ReportFile& b) {
  return std::tie(a.stem, a.path) > std::tie(b.stem, b.path);
}

// Sorts the newest reports to the front, and drops those beyond the limit.
void keepNewest(std::vector<ReportFile>& files) {
  std::sort(files.begin(), files.end(), isNewer);
  if (files.size() > kMostReports) files.resize(kMostReports);
}

// Adds the reports among the names in the folder; collects the folder's subfolders, if wanted.
void addReports(const std::string& folder, const std::vector<std::string>& names,
                std::vector<ReportFile>& files, std::vector<std::string>* subfolders) {
  for (const std::string& name : names) {
    const std::string path = folder + "/" + name;
    const std::size_t ending = name.find(kEnding, kBeginning.size());
    const bool has_ending = ending != name.npos && (ending + kEnding.size() == name.size() ||
                                                    name[ending + kEnding.size()] == '.');
    if (name.starts_with(kBeginning) && has_ending) {
      const std::string stem = name.substr(0, ending);
      files.push_back({.path = path, .stem = stem, .named_time = timeInStem(stem)});
    } else if (subfolders != nullptr && subfolders->size() < kMostSubfolders && isDirectory(path)) {
      subfolders->push_back(path);
    }
  }
  keepNewest(files);
}

struct ProblemWords {
  const char* code;
  const char* text;
};
constexpr std::array<ProblemWords, 3> kProblems = {{
    {"unreadable",
     english("cannot be read: it is a link or no regular file, is longer than 4 MB, or belongs to "
             "another user; run vorlatchctl as root to read all reports")},
    {"no-report", english("is no report, or a damaged one; it is left out")},
    {"incomplete", english("is cut short or damaged; what comes after that is missing")},
}};

}  // namespace

std::vector<ReportFile> findReportFiles(const std::string& folder) {
  const auto names = namesIn(folder, kMostEntries);
  const int error = errno;
  if (!names && error == ENOENT) return {};
  if (!names && error == ENOTDIR) {
    failCouldNot(tr("%s is no folder; move it away, so that the system can write its reports there",
                    folder));
  }
  if (!names) failCouldNot(folder + ": " + reasonOf(error));
  std::vector<ReportFile> files;
  std::vector<std::string> subfolders;
  addReports(folder, *names, files, &subfolders);
  for (const std::string& subfolder : subfolders) {
    // A subfolder that cannot be read hides only its own reports.
    addReports(subfolder, namesIn(subfolder, kMostEntries).value_or(std::vector<std::string>()),
               files, nullptr);
  }
  return files;
}

const char* problemCode(ReportProblem::Kind kind) {
  return kProblems.at(static_cast<std::size_t>(kind)).code;
}

std::string problemText(const ReportProblem& problem) {
  return problem.path + " " + translated(kProblems.at(static_cast<std::size_t>(problem.kind)).text);
}

nlohmann::ordered_json problemsJson(const std::vector<ReportProblem>& problems) {
  auto json = nlohmann::ordered_json::array();
  for (const ReportProblem& problem : problems) {
    json.push_back({{"report", problem.path},
                    {"code", problemCode(problem.kind)},
                    {"message", problemText(problem)}});
  }
  return json;
}

std::optional<JetsamReport> readReport(const ReportFile& file, std::vector<ReportProblem>& problems,
                                       WantedProcesses wanted) {
  using Kind = ReportProblem::Kind;
  // Others can put files into the folder, so follows no link to a file that they may not read.
  const std::optional<std::string> bytes = readFileToPublish(file.path, kMostReportBytes);
  if (!bytes) {
    problems.push_back({.path = file.path, .kind = Kind::Unreadable});
    return std::nullopt;
  }
  std::optional<JetsamReport> report = jetsamReportIn(*bytes, wanted);
  if (!report || !report->is_whole) {
    problems.push_back({.path = file.path, .kind = report ? Kind::Incomplete : Kind::NoReport});
  }
  if (report && !report->time) report->time = file.named_time;
  return report;
}

}  // namespace vorlatch::control
