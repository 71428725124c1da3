// The daemon's calls, read in their order by the rules, and the log that they must have made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/call.h"

namespace vorlatch::faults {

// What the daemon did is not what its rules say.
class Breach : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Whether the call did what it was asked: with a short read or write, or an interrupted one, the
// daemon goes on where it was, and of a file that it closes it asks nothing more.
bool held(const Call& call);

class Transcript {
 public:
  // The next call, which must be this one.
  const Call& next(std::string_view name, const std::vector<std::int64_t>& arguments = {});
  // Likewise, with these 32-bit numbers handed over.
  const Call& nextGiving(std::string_view name, const std::vector<std::int64_t>& arguments,
                         const std::vector<std::int32_t>& record);
  [[nodiscard]] bool nextIs(std::string_view name) const;
  // Whether memory was asked for next, and there was none.
  bool memoryLacks();
  // The file calls that come next, as long as they are about the file or a temporary one beside it,
  // in whatever number. Those on /dev/null, where a stream of the log may end, count with it, and
  // so does what is flushed before a stream is pointed elsewhere.
  std::vector<Call> onFile(const std::string& path);
  // The next calls write this line, stamped, and flush it.
  void line(const std::string& message);
  // All calls were read.
  void end() const;

  // The log is pointed to the file, or emptied, by these calls. Where one of them failed that
  // decides about the stream, lines may be lost from then on, or the file not be emptied.
  void bindLog(const std::vector<Call>& calls, bool emptying);
  // Whether the log is larger; where that is open, `claimed` decides it.
  bool logExceeds(std::int64_t bytes, bool claimed);
  // What a log that holds these bytes already goes on from.
  void beginLog(const std::string& bytes) { logs_ = {{.text = bytes}}; }
  [[nodiscard]] bool isLog(const std::string& bytes) const;
  [[nodiscard]] const std::string& expectedLog() const { return logs_.front().text; }

 private:
  struct Log {
    std::string text = {};
    bool is_bound = false;
  };

  [[noreturn]] void fail(const std::string& expected) const;

  std::size_t read_ = 0;
  std::vector<Log> logs_ = {{}};  // each as it may be
};

}  // namespace vorlatch::faults
