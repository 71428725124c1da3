// Reads the report that the system writes after it ended processes for their memory (JetsamEvent).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "control/moment.h"

namespace vorlatch::control {

// A longer file is no report; a report has about 400 kB.
inline constexpr std::size_t kMostReportBytes = std::size_t{4} * 1024 * 1024;

// A process in a report. Every value may be missing.
struct ReportedProcess {
  std::string name;    // at most 32 characters
  std::string reason;  // why the system ended it; empty if it did not
  std::optional<std::int32_t> pid;
  std::optional<std::int32_t> band;
  std::vector<std::string> states;
  std::optional<std::uint64_t> memory_bytes;
  std::optional<std::uint64_t> highest_bytes;  // the most that it ever used
};

struct JetsamReport {
  std::optional<Moment> time;
  std::string incident;  // the report's identifier; empty if it has none
  std::vector<ReportedProcess> killed;
  std::vector<ReportedProcess> left;        // those that were not ended, if they are wanted
  std::optional<std::uint64_t> free_bytes;  // the device's free memory at that moment
  // The lowest band of a process that was left. Empty if the report is not whole or says no band
  // of a process that was left, because a lower one may be missing.
  std::optional<std::int32_t> lowest_band_left;
  bool has_tenfold_bands = false;  // bands up to 210, not up to 21
  // False if the report was cut short, or holds more than a reader takes.
  bool is_whole = false;
};

enum class WantedProcesses { Killed, All };

// Reads a report of any version of the system: a line with one JSON object, and a second object.
// Values of a wrong type count as missing, long texts are cut. Stops at the first error, and
// returns what came before it. Returns std::nullopt if that is not even the beginning of the second
// object.
std::optional<JetsamReport> jetsamReportIn(std::string_view bytes,
                                           WantedProcesses wanted = WantedProcesses::Killed);

}  // namespace vorlatch::control
