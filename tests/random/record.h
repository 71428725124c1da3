// What the daemon did in one piece of work, in its order: the calls of the seam, and the lines of
// the log. Who reads it says what comes next, and is given the kernel's answers.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/descriptor.h"
#include "platform/simulated/device.h"

namespace vorlatch::tests::random {

// The daemon did something else than the oracle says.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Record {
 public:
  explicit Record(std::string log_path);

  void begin(std::vector<simulated::Call> calls);
  // The piece of work ends here: nothing more was called or logged.
  void end();

  // The next event is this call, without its result; or this line, without its stamp.
  const simulated::Call& call(const std::string& text);
  void line(const std::string& text);
  // Right before the next event the log was emptied.
  void logCleared();

  // Whether the next event is a call whose text begins so.
  [[nodiscard]] bool isNext(std::string_view text) const;
  // How far ahead in the log this line comes; npos when it does not.
  std::size_t distanceTo(const std::string& line);

  // How large the log is.
  [[nodiscard]] std::uint64_t logBytes() const { return log_read_; }
  [[nodiscard]] std::uint64_t lineCount() const { return line_count_; }

  // What errno holds, as far as the calls set it.
  int error_number = 0;

 private:
  const simulated::Call& next(std::string_view wanted);
  void readLog();
  [[noreturn]] void fail(std::string_view wanted) const;

  std::string log_path_;
  std::optional<Descriptor> log_file_;
  std::uint64_t log_read_ = 0;
  std::string unread_log_;
  std::vector<simulated::Call> calls_;
  std::size_t next_call_ = 0;
  std::uint64_t line_count_ = 0;
  std::vector<std::string> matched_;
};

}  // namespace vorlatch::tests::random
