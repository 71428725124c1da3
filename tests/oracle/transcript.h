// What the daemon did in one work item, in order, as the device's trace shows it, and what its
// files must contain after it. The oracle sees the daemon through this class alone.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"
#include "tests/simulated/device.h"

namespace vorlatch::tests {

// Thrown when the daemon does something other than the oracle predicts.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A buffer as the daemon passes it: null if `size` is 0. Without `holds`, any contents match.
struct Buffer {
  std::int64_t size = 0;
  std::optional<std::string> holds = std::nullopt;
};

// The result of a call.
struct Answer {
  std::int64_t result = 0;
  std::string left = {};  // the bytes that it left in its buffer, or the first of them
};

// The daemon's files, and the contents of those that it reads.
struct Files {
  std::string log;
  std::string preferences_file;
  std::string status_file;
  std::optional<plist::Dictionary> preferences = std::nullopt;  // std::nullopt if unreadable
  std::map<std::string, plist::Dictionary> info_plists = {};    // by bundle directory
};

class Transcript {
 public:
  // The files, and what the log contains before the start.
  Transcript(Files& files, const std::string& log) : files_(files), logs_{{.text = log}} {}

  void begin(std::vector<simulated::Call> calls);
  // Ends the work item: fails if there are calls left.
  void end() const;

  // Whether posted notifications reach the daemon.
  [[nodiscard]] bool isObserving() const { return is_observing_; }
  // What this work item wrote to the status file and to the preferences, if it did.
  std::optional<plist::Dictionary> written_status;
  std::optional<plist::Dictionary> written_preset;
  // Whether a temporary file may remain, because its removal failed.
  [[nodiscard]] bool leavesTemporary() const { return leaves_temporary_; }
  // Whether the log may contain these bytes. Several logs are possible after a failed call that
  // decides where standard error points: lines may be lost, or the file may stay uncleared.
  [[nodiscard]] bool isLog(const std::string& bytes) const;
  [[nodiscard]] const std::string& expectedLog() const { return logs_.front().text; }

  // Each of the following consumes the daemon's next step and throws Mismatch if it is a different
  // one. A call of the kernel or the process table; `arguments` are the numbers before the buffer.
  Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
              const std::optional<Buffer>& buffer);
  // A call on queues, timers or notifications, as the simulated device formats it. Returns the
  // device's time.
  std::uint64_t schedules(const std::string& text);
  void logs(const std::string& line);
  // Whether the daemon requested memory and the allocation failed.
  bool lacksMemory() { return take("allocate", "").answer.result == 0; }

  // The daemon's work on its files.
  void opensLog() { bindLog(onFile(files_.log), false); }
  // The daemon clears a log that exceeds the limit. Returns false if this log does not exceed it.
  bool clearsLog(std::int64_t limit_bytes);
  bool findsNoPreferences();
  void writesPreset(const plist::Dictionary& preset);
  // Returns std::nullopt if the file cannot be read.
  std::optional<plist::Dictionary> readsPreferences();
  std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory);
  void writesStatus(const plist::Dictionary& status);

  // Whether this call comes next. Consumes nothing.
  bool isNext(const std::string& scheduling_call);

  // The value of errno, as far as the calls set it.
  int error_number = 0;

 private:
  struct Log {
    std::string text = {};
    bool is_bound = false;
  };
  using Calls = std::vector<simulated::Call>;

  [[nodiscard]] bool nextIs(std::string_view function) const;
  // Consumes the call with this text, whatever its result.
  const simulated::Call& take(std::string_view function, const std::string& text);
  // Consumes the next calls, however many, that concern the file or its temporary file. Calls on
  // /dev/null, which may replace the log, and flushes before a redirection are included.
  Calls onFile(const std::string& path);
  // Whether the daemon read the file; `is_list` says whether it is a property list.
  bool readsList(const std::string& path, bool is_list);
  bool writesList(const std::string& path);
  void bindLog(const Calls& calls, bool emptying);
  bool logExceeds(std::int64_t bytes, bool claimed);
  [[noreturn]] void fail(const std::string& wanted) const;

  Files& files_;
  std::vector<Log> logs_;  // the possible logs
  Calls calls_;
  std::size_t next_ = 0;
  bool is_observing_ = false;
  bool leaves_temporary_ = false;
};

}  // namespace vorlatch::tests
