// The oracle's view of the daemon: its steps in order, and their results.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"

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

// Each function consumes the daemon's next step and throws Mismatch if it is a different one.
class Observer {
 public:
  Observer() = default;
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;
  virtual ~Observer() = default;

  // A call of the kernel or the process table. `arguments` are the numbers before the buffer.
  virtual Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
                      const std::optional<Buffer>& buffer) = 0;
  // A call on queues, timers or notifications, as the simulated device formats it. Returns the
  // device's time.
  virtual std::uint64_t schedules(const std::string& call) = 0;
  virtual void logs(const std::string& line) = 0;
  // Whether the daemon requested memory and the allocation failed.
  virtual bool lacksMemory() = 0;

  // The daemon's work on its files.
  virtual void opensLog() = 0;
  // The daemon clears a log that exceeds the limit. Returns false if this log does not exceed it.
  virtual bool clearsLog(std::int64_t limit_bytes) = 0;
  virtual bool findsNoPreferences() = 0;
  virtual void writesPreset(const plist::Dictionary& preset) = 0;
  // Returns std::nullopt if the file cannot be read.
  virtual std::optional<plist::Dictionary> readsPreferences() = 0;
  virtual std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory) = 0;
  virtual void writesStatus(const plist::Dictionary& status) = 0;

  // Whether this call comes next. Consumes nothing.
  virtual bool isNext(const std::string& scheduling_call) = 0;

  // The value of errno, as far as the calls set it.
  int error_number = 0;
};

}  // namespace vorlatch::tests
