// Who watches the daemon for the oracle: what the daemon did, in its order, and what came of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"

namespace vorlatch::tests {

// The daemon did something else than the oracle says.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A buffer as the daemon hands it over: null when it has no bytes. Where nothing is said of what it
// holds, that does not matter.
struct Buffer {
  std::int64_t size = 0;
  std::optional<std::string> holds = std::nullopt;
};

// What came of a call.
struct Answer {
  std::int64_t result = 0;
  std::string left = {};  // the bytes that it left in its buffer, or the first of them
};

// Each function takes the daemon's next step, which has to be this one; throws Mismatch if it is
// not.
class Witness {
 public:
  Witness() = default;
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;
  virtual ~Witness() = default;

  // A call of the kernel or of the process table, with the numbers before its buffer, and no buffer
  // where it takes none.
  virtual Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
                      const std::optional<Buffer>& buffer) = 0;
  // A call about queues, timers or notifications, as the simulated device tells it. Gives the
  // device's time.
  virtual std::uint64_t schedules(const std::string& call) = 0;
  virtual void logs(const std::string& line) = 0;
  // Whether the daemon asked for memory, and there was none.
  virtual bool lacksMemory() = 0;

  // What the daemon does with its files.
  virtual void opensLog() = 0;
  // Empties a log that is larger than the limit; false when this one is not.
  virtual bool clearsLog(std::int64_t limit_bytes) = 0;
  virtual bool findsNoPreferences() = 0;
  virtual void writesPreset(const plist::Dictionary& preset) = 0;
  // Nothing when they cannot be read.
  virtual std::optional<plist::Dictionary> readsPreferences() = 0;
  virtual std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory) = 0;
  virtual void writesStatus(const plist::Dictionary& status) = 0;

  // What comes next, without taking it: whether it is such a call, and how far ahead the line is
  // logged, npos when it is not.
  virtual bool isNext(const std::string& scheduling_call) = 0;
  virtual std::size_t distanceTo(const std::string& line) = 0;

  // What errno holds, as far as the calls set it.
  int error_number = 0;
};

}  // namespace vorlatch::tests
