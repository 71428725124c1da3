// The daemon's log as it is read: across clearings and the holes of foreign truncations.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlatch::cli {

// One line taken apart. Whatever does not have the form of a line is all text.
struct LogLine {
  std::string stamp;
  std::string category;  // without its brackets; empty when it has none
  std::string text;
  std::string whole;
};

LogLine logLineOf(std::string_view line);

// Every category that the daemon writes.
const std::vector<std::string>& logCategories();

// Follows a file that grows, is emptied in place and grows again.
class LogReader {
 public:
  explicit LogReader(std::string path) : path_(std::move(path)) {}

  // The complete lines that came since the last time. A file that was emptied or replaced is read
  // from its beginning; the NULs of a hole are passed over. Throws a Failure when it cannot be
  // read.
  std::vector<LogLine> readNew();

 private:
  bool isStillTheSame(int file, std::int64_t size_bytes);

  const std::string path_;
  std::int64_t offset_ = 0;
  std::string last_bytes_;  // in front of the offset, to tell a file that was emptied and grew
  std::string unfinished_;  // a line that has no end yet
};

// Collects lines until what belongs together is there, and passes on what is wanted of it: the
// lines of a pass over one target, from the rule above it to its last.
class LogFilter {
 public:
  LogFilter(std::string target, std::string category)
      : target_(std::move(target)), category_(std::move(category)) {}

  void take(LogLine line, const std::function<void(const LogLine&)>& pass_on);
  // Passes on what was collected, as nothing more comes.
  void finish(const std::function<void(const LogLine&)>& pass_on);

 private:
  [[nodiscard]] bool names(const LogLine& line) const;

  const std::string target_;
  const std::string category_;
  std::vector<LogLine> block_;
};

}  // namespace vorlatch::cli
