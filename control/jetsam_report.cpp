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
  enum class Place { Outside, Report, MemoryStatus, Processes, Process, States, Elsewhere };
  struct ReadProcess {
    KilledProcess killed;
    std::optional<std::int64_t> pages;
    std::optional<std::int64_t> most_pages;
  };

  [[nodiscard]] Place place() const { return depth_ == 0 ? Place::Outside : places_[depth_ - 1]; }
  [[nodiscard]] Place placeInside(bool is_object) const;
  bool enter(bool is_object);
  bool leave();
  void takeNumber(std::int64_t value);
  void endProcess();

  std::array<Place, kDeepest> places_{};
  std::size_t depth_ = 0;
  std::string key_;
  bool has_begun_ = false;
  bool has_unknown_band_ = false;
  std::optional<std::int32_t> lowest_left_;
  std::size_t processes_ = 0;
  std::optional<std::int64_t> page_bytes_;
  ReadProcess process_;
  std::vector<ReadProcess> killed_;
  JetsamReport report_;
};

ReportHandler::Place ReportHandler::placeInside(bool is_object) const {
  const Place outer = place();
  if (outer == Place::Outside && is_object) return Place::Report;
  if (outer == Place::Report && is_object && key_ == "memoryStatus") return Place::MemoryStatus;
  if (outer == Place::Report && !is_object && key_ == "processes") return Place::Processes;
  if (outer == Place::Processes && is_object) return Place::Process;
  if (outer == Place::Process && !is_object && key_ == "states") return Place::States;
  return Place::Elsewhere;
}

bool ReportHandler::enter(bool is_object) {
  if (depth_ == kDeepest) return false;
  const Place inside = placeInside(is_object);
  if (inside == Place::Process && ++processes_ > kMostProcesses) return false;
  if (inside == Place::Process) process_ = {};
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
  KilledProcess& killed = process_.killed;
  if (place() == Place::Process) {
    if (key_ == "name") killed.name = shortened(value);
    if (key_ == "reason") killed.reason = shortened(value);
  } else if (place() == Place::States) {
    if (killed.states.size() < kMostStates) killed.states.push_back(shortened(value));
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
  if (place() != Place::Process || value < 0) return;
  const bool is_int32 = value <= std::numeric_limits<std::int32_t>::max();
  const bool is_band = value <= platform::kHighestBandSinceIOS16;
  if (key_ == "pid" && is_int32) process_.killed.pid = static_cast<std::int32_t>(value);
  if (key_ == "priority" && is_band) process_.killed.band = static_cast<std::int32_t>(value);
  if (key_ == "rpages" && value <= kMostPages) process_.pages = value;
  if (key_ == "lifetimeMax" && value <= kMostPages) process_.most_pages = value;
}

void ReportHandler::endProcess() {
  const KilledProcess& process = process_.killed;
  if (process.band > platform::kHighestBandToIOS15) report_.has_tenfold_bands = true;
  if (!process.reason.empty()) {
    killed_.push_back(std::exchange(process_, {}));
  } else if (process.pid != 0) {  // the kernel itself, which nothing ends
    if (!process.band) {
      has_unknown_band_ = true;
    } else {
      lowest_left_ = std::min(lowest_left_.value_or(*process.band), *process.band);
    }
  }
}

JetsamReport ReportHandler::take(bool has_reached_end) {
  // The last process of a report that was cut short counts if it says that it was ended.
  const bool is_in_process = depth_ >= 3 && places_[2] == Place::Process;
  if (is_in_process && !process_.killed.reason.empty()) endProcess();
  report_.is_whole = has_reached_end;
  if (has_reached_end && !has_unknown_band_) report_.lowest_band_left = lowest_left_;
  for (ReadProcess& read : killed_) {
    const auto bytes = [this](std::optional<std::int64_t> pages) -> std::optional<std::uint64_t> {
      if (!pages || !page_bytes_) return std::nullopt;
      return static_cast<std::uint64_t>(*pages * *page_bytes_);
    };
    read.killed.memory_bytes = bytes(read.pages);
    read.killed.highest_bytes = bytes(std::max(read.pages, read.most_pages));
    report_.killed.push_back(std::move(read.killed));
  }
  return std::move(report_);
}

}  // namespace

std::optional<JetsamReport> jetsamReportIn(std::string_view bytes) {
  const std::size_t line_end = std::min(bytes.find('\n'), bytes.size());
  const std::string_view first = bytes.substr(0, line_end);
  const std::string_view second = bytes.substr(line_end);
  ReportHandler heading;
  nlohmann::json::sax_parse(first.begin(), first.end(), &heading);
  ReportHandler handler;
  const bool has_reached_end = nlohmann::json::sax_parse(second.begin(), second.end(), &handler);
  if (!handler.hasBegun()) return std::nullopt;
  JetsamReport report = handler.take(has_reached_end);
  JetsamReport above = heading.take(true);
  if (!report.time) report.time = above.time;
  if (report.incident.empty()) report.incident = std::move(above.incident);
  return report;
}

}  // namespace vorlatch::control
