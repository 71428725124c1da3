#include "control/report_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/files.h"
#include "control/failure.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBeginning = "JetsamEvent-";
constexpr std::string_view kEnding = ".ips";
constexpr std::size_t kMostReports = 2000;
constexpr std::size_t kMostSubfolders = 100;

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

// Returns false with the cause if the folder cannot be read.
std::error_code addReportsIn(const fs::path& folder, std::vector<ReportFile>& files,
                             std::vector<fs::path>* subfolders) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const std::size_t ending = name.find(kEnding, kBeginning.size());
    const bool has_endings = ending != name.npos && (ending + kEnding.size() == name.size() ||
                                                     name[ending + kEnding.size()] == '.');
    if (name.starts_with(kBeginning) && has_endings) {
      ReportFile file{
          .path = entry->path().string(), .stem = name.substr(0, ending), .named_time = {}};
      file.named_time = timeInStem(file.stem);
      files.push_back(std::move(file));
      if (files.size() == 2 * kMostReports) keepNewest(files);
      continue;
    }
    std::error_code unknown;
    const bool is_folder = entry->symlink_status(unknown).type() == fs::file_type::directory;
    if (subfolders != nullptr && is_folder && subfolders->size() < kMostSubfolders) {
      subfolders->push_back(entry->path());
    }
  }
  return error;
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
  std::vector<ReportFile> files;
  std::vector<fs::path> subfolders;
  const std::error_code error = addReportsIn(folder, files, &subfolders);
  if (error == std::errc::not_a_directory) {
    failCouldNot(tr("%s is no folder; move it away, so that the system can write its reports there",
                    folder));
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    failCouldNot(folder + ": " + reasonOf(error.value()));
  }
  // A subfolder that cannot be read hides only its own reports.
  for (const fs::path& subfolder : subfolders) addReportsIn(subfolder, files, nullptr);
  keepNewest(files);
  return files;
}

const char* problemCode(ReportProblem::Kind kind) {
  return kProblems.at(static_cast<std::size_t>(kind)).code;
}

std::string problemText(const ReportProblem& problem) {
  return problem.path + " " + translated(kProblems.at(static_cast<std::size_t>(problem.kind)).text);
}

std::optional<JetsamReport> readReport(const ReportFile& file,
                                       std::vector<ReportProblem>& problems) {
  using Kind = ReportProblem::Kind;
  // Others can put files into the folder, so follows no link to a file that they may not read.
  const std::optional<std::string> bytes = readFileToPublish(file.path, kMostReportBytes);
  if (!bytes) {
    problems.push_back({.path = file.path, .kind = Kind::Unreadable});
    return std::nullopt;
  }
  std::optional<JetsamReport> report = jetsamReportIn(*bytes);
  if (!report || !report->is_whole) {
    problems.push_back({.path = file.path, .kind = report ? Kind::Incomplete : Kind::NoReport});
  }
  if (report && !report->time) report->time = file.named_time;
  return report;
}

}  // namespace vorlatch::control
