// Reports of ended processes, written for tests, and a story with a folder for them.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/held_story.h"
#include "tests/support/text.h"

namespace vorlatch::tests {

using ReportJson = nlohmann::ordered_json;

inline const std::string kReportHeading =
    R"({"bug_type":"298","timestamp":"2026-03-04 04:00:00.00 +0800","incident_id":"A"})"
    "\n";

// A report as the system lays it out. `changes` replaces or adds keys of the second object.
inline std::string reportWith(const std::string& processes, const std::string& changes = "{}") {
  ReportJson body = ReportJson::parse(R"({"build": "iPhone OS 16.5", "incident": "A",
      "date": "2026-03-04 04:00:00.63 +0800", "timeDelta": 5,
      "memoryStatus": {"compressorSize": 9, "memoryPages": {"free": 7}, "pageSize": 16384},
      "largestProcess": "alpha"})");
  body["processes"] = ReportJson::parse(processes);
  body.update(ReportJson::parse(changes));
  return kReportHeading + body.dump(2) + "\n";
}

// A report in which the only process was ended.
inline std::string reportOf(const std::string& process, const std::string& changes = "{}") {
  return reportWith("[" + process + "]", changes);
}

inline std::string reportNaming(const std::string& name) {
  return reportOf(R"({"name": ")" + name + R"(", "reason": "r"})");
}

inline const std::string kAlphaKilled =
    R"({"name": "alpha", "pid": 8, "priority": 100, "states": ["frontmost"], "rpages": 96000,
        "lifetimeMax": 96640, "reason": "per-process-limit"})";

// The name of the report that is put if no other is given.
inline const std::string kReport = "JetsamEvent-2026-03-04-040000.ips";

// The device's zone is that of the reports, and its clock shows 2026-03-04 05:06:07 in it. alpha is
// held with the limits 1500 and 1000 MB and at band 100.
struct KillsStory : HeldStory {
  KillsStory() {
    setenv("TZ", "UTC-8", 1);
    device.stepWallClock(std::int64_t{-8} * 3600);
    device.crash_reports = rootPath("/CrashReporter");
    std::filesystem::create_directory(device.crash_reports);
  }

  [[nodiscard]] std::string reportPath(const std::string& name) const {
    return device.crash_reports + "/" + name;
  }
  void put(const std::string& report, const std::string& name = kReport) const {
    std::filesystem::create_directories(std::filesystem::path(reportPath(name)).parent_path());
    writeAll(reportPath(name), report);
  }
};

// The rows of the table, whatever the widths of the columns are.
inline std::string killRows(ControlStory& story, const std::string& arguments = "") {
  return rowsOf(story.answer("kills" + arguments), 1);
}

// The names of the processes that were ended, newest first.
inline std::string killedNames(ControlStory& story, const std::string& arguments = "") {
  const auto json = ReportJson::parse(story.answer("kills --json" + arguments));
  std::string names;
  for (const auto& kill : json["kills"]) names += kill["process"].get<std::string>() + " ";
  return names;
}

}  // namespace vorlatch::tests
