#include "control/jetsam_report.h"

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/jetsam_bands.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kDeepest = 16;  // nested objects and arrays
constexpr std::size_t kMostTextBytes = 256;
constexpr std::size_t kMostProcesses = 4000;
constexpr std::size_t kMostStates = 16;
constexpr std::int64_t kMostPages = std::int64_t{1} << 32;
constexpr std::int64_t kSmallestPage = 1024;
constexpr std::int64_t kLargestPage = std::int64_t{1024} * 1024;

// Returns the text without what is beyond the limit, and without the half of a character there.
std::string shortened(const std::string& text) {
  if (text.size() <= kMostTextBytes) return text;
  std::size_t end = kMostTextBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end);
}

// Receives the values of a report one by one, as nlohmann::json::sax_parse reads them, and keeps
// those that are needed. A function that returns false ends the parsing.
class ReportHandler {
 public:
  explicit ReportHandler(WantedProcesses wanted) : wanted_(wanted) {}

  static bool null() { return true; }
  static bool boolean(bool /*value*/) { return true; }
  bool number_integer(std::int64_t value) {
    takeNumber(value);
    return true;
  }
  bool number_unsigned(std::uint64_t value) {
    if (value <= std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
      takeNumber(static_cast<std::int64_t>(value));
    }
    return true;
  }
  static bool number_float(double /*value*/, const std::string& /*text*/) { return true; }
  static bool binary(const std::vector<std::uint8_t>& /*bytes*/) { return true; }
  bool string(const std::string& value);
  bool key(const std::string& value) {
    // Elsewhere, keys mean nothing.
    if (place() != Place::Elsewhere) key_ = value;
    return true;
  }
  bool start_object(std::size_t /*elements*/) { return enter(true); }
  bool start_array(std::size_t /*elements*/) { return enter(false); }
  bool end_object() { return leave(); }
  bool end_array() { return leave(); }
  template <typename Error>
  bool parse_error(std::size_t /*at*/, const std::string& /*token*/, const Error& /*error*/) {
    return false;
  }

  [[nodiscard]] bool hasBegun() const { return has_begun_; }
  // Returns what was received. If the parser did not reach the end, the report is not whole.
  JetsamReport take(bool has_reached_end);

 private:
  enum class Place {
    Outside,
    Report,
    MemoryStatus,
    MemoryPages,
    Processes,
    Process,
    States,
    Elsewhere
  };
  struct ReadProcess {
    ReportedProcess process;
    std::optional<std::int64_t> pages;
    std::optional<std::int64_t> most_pages;
  };

  [[nodiscard]] Place place() const { return depth_ == 0 ? Place::Outside : places_[depth_ - 1]; }
  [[nodiscard]] Place placeInside(bool is_object) const;
  bool enter(bool is_object);
  bool leave();
  void takeNumber(std::int64_t value);
  void endProcess();
  [[nodiscard]] std::optional<std::uint64_t> bytesOf(std::optional<std::int64_t> pages) const;
  [[nodiscard]] std::vector<ReportedProcess> finished(std::vector<ReadProcess> all) const;

  const WantedProcesses wanted_;
  std::array<Place, kDeepest> places_{};
  std::size_t depth_ = 0;
  std::string key_;
  bool has_begun_ = false;
  bool has_unknown_band_ = false;
  std::optional<std::int32_t> lowest_left_;
  std::size_t processes_ = 0;
  std::optional<std::int64_t> page_bytes_;
  std::optional<std::int64_t> free_pages_;
  ReadProcess read_;
  std::vector<ReadProcess> killed_;
  std::vector<ReadProcess> left_;
  JetsamReport report_;
};

ReportHandler::Place ReportHandler::placeInside(bool is_object) const {
  const Place outer = place();
  if (outer == Place::Outside && is_object) return Place::Report;
  if (outer == Place::Report && is_object && key_ == "memoryStatus") return Place::MemoryStatus;
  if (outer == Place::MemoryStatus && is_object && key_ == "memoryPages") {
    return Place::MemoryPages;
  }
  if (outer == Place::Report && !is_object && key_ == "processes") return Place::Processes;
  if (outer == Place::Processes && is_object) return Place::Process;
  if (outer == Place::Process && !is_object && key_ == "states") return Place::States;
  return Place::Elsewhere;
}

bool ReportHandler::enter(bool is_object) {
  if (depth_ == kDeepest) return false;
  const Place inside = placeInside(is_object);
  if (inside == Place::Process && ++processes_ > kMostProcesses) return false;
  if (inside == Place::Process) read_ = {};
  if (inside == Place::Report) has_begun_ = true;
  places_[depth_++] = inside;
  return true;
}

bool ReportHandler::leave() {
  if (place() == Place::Process) endProcess();
  --depth_;
  return true;
}

bool ReportHandler::string(const std::string& value) {
  ReportedProcess& process = read_.process;
  if (place() == Place::Process) {
    if (key_ == "name") process.name = shortened(value);
    if (key_ == "reason") process.reason = shortened(value);
  } else if (place() == Place::States) {
    if (process.states.size() < kMostStates) process.states.push_back(shortened(value));
  } else if (place() == Place::Report) {
    // The report has "date", the line above it "timestamp".
    if (key_ == "date" || (key_ == "timestamp" && !report_.time)) report_.time = momentIn(value);
    if (key_ == "incident" || key_ == "incident_id") report_.incident = shortened(value);
  }
  return true;
}

void ReportHandler::takeNumber(std::int64_t value) {
  if (place() == Place::MemoryStatus) {
    if (key_ == "pageSize" && value >= kSmallestPage && value <= kLargestPage) page_bytes_ = value;
    return;
  }
  if (place() == Place::MemoryPages) {
    if (key_ == "free" && value >= 0 && value <= kMostPages) free_pages_ = value;
    return;
  }
  if (place() != Place::Process || value < 0) return;
  const bool is_int32 = value <= std::numeric_limits<std::int32_t>::max();
  const bool is_band = value <= platform::kHighestBandSinceIOS16;
  if (key_ == "pid" && is_int32) read_.process.pid = static_cast<std::int32_t>(value);
  if (key_ == "priority" && is_band) read_.process.band = static_cast<std::int32_t>(value);
  if (key_ == "rpages" && value <= kMostPages) read_.pages = value;
  if (key_ == "lifetimeMax" && value <= kMostPages) read_.most_pages = value;
}

void ReportHandler::endProcess() {
  const ReportedProcess& process = read_.process;
  if (process.band > platform::kHighestBandToIOS15) report_.has_tenfold_bands = true;
  if (!process.reason.empty()) {
    killed_.push_back(std::exchange(read_, {}));
    return;
  }
  if (process.pid != 0) {  // the kernel itself, which nothing ends
    if (!process.band) {
      has_unknown_band_ = true;
    } else {
      lowest_left_ = std::min(lowest_left_.value_or(*process.band), *process.band);
    }
  }
  if (wanted_ == WantedProcesses::All) left_.push_back(std::exchange(read_, {}));
}

std::optional<std::uint64_t> ReportHandler::bytesOf(std::optional<std::int64_t> pages) const {
  if (!pages || !page_bytes_) return std::nullopt;
  return static_cast<std::uint64_t>(*pages * *page_bytes_);
}

// The size of a page may stand behind the processes.
std::vector<ReportedProcess> ReportHandler::finished(std::vector<ReadProcess> all) const {
  std::vector<ReportedProcess> processes;
  processes.reserve(all.size());
  for (ReadProcess& read : all) {
    read.process.memory_bytes = bytesOf(read.pages);
    read.process.highest_bytes = bytesOf(std::max(read.pages, read.most_pages));
    processes.push_back(std::move(read.process));
  }
  return processes;
}

JetsamReport ReportHandler::take(bool has_reached_end) {
  // The last process of a report that was cut short counts if it says that it was ended.
  const bool is_in_process = depth_ >= 3 && places_[2] == Place::Process;
  if (is_in_process && !read_.process.reason.empty()) endProcess();
  report_.is_whole = has_reached_end;
  if (has_reached_end && !has_unknown_band_) report_.lowest_band_left = lowest_left_;
  report_.free_bytes = bytesOf(free_pages_);
  report_.killed = finished(std::move(killed_));
  report_.left = finished(std::move(left_));
  return std::move(report_);
}

}  // namespace

std::optional<JetsamReport> jetsamReportIn(std::string_view bytes, WantedProcesses wanted) {
  const std::size_t line_end = std::min(bytes.find('\n'), bytes.size());
  const std::string_view first = bytes.substr(0, line_end);
  const std::string_view second = bytes.substr(line_end);
  ReportHandler heading(WantedProcesses::Killed);
  nlohmann::json::sax_parse(first.begin(), first.end(), &heading);
  ReportHandler handler(wanted);
  const bool has_reached_end = nlohmann::json::sax_parse(second.begin(), second.end(), &handler);
  if (!handler.hasBegun()) return std::nullopt;
  JetsamReport report = handler.take(has_reached_end);
  JetsamReport above = heading.take(true);
  if (!report.time) report.time = above.time;
  if (report.incident.empty()) report.incident = std::move(above.incident);
  return report;
}

}  // namespace vorlatch::control
