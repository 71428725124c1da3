// The daemon's log as it is read: across clearings and the holes of foreign truncations.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlatch::control {

// One line taken apart. Whatever does not have the form of a line is all text.
struct LogLine {
  std::string stamp;
  std::string category;  // without its brackets; empty when it has none
  std::string text;
};

LogLine logLineOf(std::string_view line);

// Every category that the daemon writes.
const std::vector<std::string>& logCategories();

// Follows a file that grows, is emptied in place and grows again.
class LogReader {
 public:
  explicit LogReader(std::string path) : path_(std::move(path)) {}

  // Passes on each complete line that came since the last time; false when there was none. A file
  // that was emptied or replaced is read from its beginning; the NULs of a hole are passed over,
  // and so is what a line has beyond 64 kB. Throws a Failure when the file cannot be read.
  bool readNew(const std::function<void(LogLine)>& pass_on);

 private:
  bool isStillTheSame(int file, std::int64_t size_bytes);
  // What stands in the file from the offset on, a block at most, and behind a hole; nothing at its
  // end.
  std::string_view nextBlock(int file, std::int64_t size_bytes);

  const std::string path_;
  std::int64_t offset_ = 0;
  std::string last_bytes_;  // in front of the offset, to tell a file that was emptied and grew
  std::string unfinished_;  // a line that has no end yet
  std::string block_;       // read last
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

}  // namespace vorlatch::control
