// One report as a whole: the memory of every process when the system ended some.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "control/observation.h"
#include "control/report_files.h"

namespace vorlatch::control {

struct ReportView {
  struct Row {
    ReportedProcess process;
    std::string target;  // empty: of no target
  };
  struct Sum {
    std::size_t processes = 0;
    std::uint64_t memory_bytes = 0;  // of those whose memory is known
    void add(const ReportedProcess& process);
  };
  std::string path;
  std::optional<Moment> time;
  std::optional<std::uint64_t> free_bytes;
  // The 20 largest processes and all others that were ended, at most 100, the largest first.
  std::vector<Row> rows;
  Sum rest;  // the processes without a row
  Sum all;
  std::vector<ReportProblem> problems;  // at most one: the report is not whole
};

// Reads the report of this file name among those that findReportFiles finds, or of this path if one
// of them has it; never opens another file. Throws a Failure if there is no such report or if it
// cannot be read.
ReportView readReportNamed(const std::string& name, const Observation& observation);

// Returns the names of the report files, the newest first; none if the folder cannot be read.
std::vector<std::string> reportNames();
// Returns the file name in a report's path.
std::string reportNameIn(const std::string& path);

nlohmann::ordered_json reportJson(const ReportView& view);

}  // namespace vorlatch::control
