// Reads the daemon's log, even if it is emptied or another program's truncation left a hole.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace vorlatch::control {

// One parsed line. If a line does not have the daemon's form, all of it is `text`.
struct LogLine {
  std::string stamp;
  std::string category;  // without brackets; empty if the line has none
  std::string text;
};

LogLine logLineOf(std::string_view line);

// Follows a file that grows and may be emptied in place.
class LogReader {
 public:
  explicit LogReader(std::string path) : path_(std::move(path)) {}

  // Passes each complete line that was added since the last call to `pass_on`; returns false if
  // there was none. Starts at the beginning if the file was emptied or replaced. Skips the NULs of
  // a hole and the part of a line beyond 64 kB. Throws a Failure if the file cannot be read.
  bool readNew(const std::function<void(LogLine)>& pass_on);

 private:
  bool isStillTheSame(int file, std::int64_t size_bytes);
  // Skips a hole at the offset, reads at most one block and advances the offset. Returns an empty
  // view at the end of the file.
  std::string_view nextBlock(int file, std::int64_t size_bytes);

  const std::string path_;
  std::int64_t offset_ = 0;
  std::string last_bytes_;  // before the offset; they differ if the file was emptied and grew
  std::string unfinished_;  // a line without its line feed yet
  std::string block_;       // the buffer of the last read
};

}  // namespace vorlatch::control
