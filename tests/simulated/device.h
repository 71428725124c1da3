// The simulated device: its processes, its kernel, its clock, and what a story scripts of them. The
// seam's functions act on the one device of the process; tests act on it through this class. Used
// from one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/model/jetsam_model.h"
#include "tests/simulated/scheduler.h"

namespace vorlatch::simulated {

struct Process {
  std::string name;
  std::string executable_path;
  std::int32_t pid = 0;
  std::int32_t nice_value = 0;
  std::uint64_t start_time = 0;
  bool is_zombie = false;
  // What the system makes of every nice value or band set from outside, if it overrides them.
  std::optional<std::int32_t> overriding_nice = std::nullopt;
  std::optional<std::int32_t> overriding_band = std::nullopt;
};

struct Launch {
  std::string name;
  std::string executable_path = "/usr/libexec/" + name;
  std::int32_t pid = 0;  // 0: the next free one
  std::int32_t nice_value = 0;
};

// What happens to the calls that match: of one function, and where given of one command (of
// memorystatus_control) or `which` (of the priority calls) and of one process.
struct Script {
  std::string function;
  std::optional<int> command = std::nullopt;
  std::optional<std::int32_t> pid = std::nullopt;
  int first = 1;  // the first matching call that it is for, counted from 1
  int count = std::numeric_limits<int>::max();
  // The answer given in the real one's place; with `acts`, after the real one was carried out.
  std::optional<int> result = std::nullopt;
  int error = 0;
  bool acts = false;
  std::optional<std::string> buffer = std::nullopt;  // the bytes that the call leaves behind
  std::uint64_t takes_ns = 0;                        // how long the call takes
  std::function<void()> meanwhile = nullptr;         // what happens elsewhere during the call
  int seen = 0;
};

// One call of the seam, as a trace holds it.
struct Call {
  std::string function;
  std::string text;  // with arguments, the buffer's bytes and the result
  model::CallResult answer = {};
  std::string left = {};  // what it left in its buffer: as much as the result counts, or 32 bytes
  std::uint64_t at_ns = 0;
};

class Device {
 public:
  Device();
  static Device& get();

  // Processes are listed newest first, zombies last.
  std::int32_t launch(const Launch& launch);
  void exit(std::int32_t pid);
  void becomeZombie(std::int32_t pid);
  // The process that runs under the pid; null when there is none, or only a zombie.
  Process* find(std::int32_t pid);
  [[nodiscard]] const std::list<Process>& processes() const { return processes_; }
  // The jetsam state of a process that runs.
  model::JetsamRecord jetsam(std::int32_t pid);

  void script(Script script) { scripts_.push_back(std::move(script)); }
  void clearScripts() { scripts_.clear(); }

  // Another program posts the notification.
  void post(const std::string& name);

  void runForNs(std::uint64_t duration_ns) { scheduler.runUntil(scheduler.nowNs() + duration_ns); }
  void stepWallClock(std::int64_t seconds) { wall_step_s_ += seconds; }
  // Seconds since 1970 in the device's own time zone.
  [[nodiscard]] std::int64_t wallSeconds() const;

  // The calls made since the last time, whole; or as texts, of the named functions or of all.
  std::vector<Call> takeCalls() { return std::exchange(trace_, {}); }
  std::vector<std::string> takeTrace(const std::vector<std::string>& functions = {});

  platform::Scheduler scheduler;
  model::Kernel kernel;
  model::JetsamTable jetsam_table;
  std::string root_prefix_library = "no-such-library";
  bool is_tracing = true;

  // For the seam's functions.
  using Answer = model::CallResult;
  // Makes one call: `act` is the real one, which reads and writes `buffer`.
  int call(std::string_view function, int command, std::int32_t pid, std::string_view arguments,
           void* buffer, std::size_t buffer_bytes, const std::function<Answer()>& act);
  void trace(std::string_view function, std::string text, const Answer& answer = {},
             std::string left = {});
  void observe(const std::string& name, platform::Work handler);

 private:
  Script* matchingScript(std::string_view function, int command, std::int32_t pid);

  std::list<Process> processes_;
  std::unordered_map<std::int32_t, std::list<Process>::iterator> by_pid_;
  std::vector<Script> scripts_;
  std::vector<Call> trace_;
  std::multimap<std::string, platform::Work> observers_;
  platform::SerialQueue& main_queue_;
  std::int64_t wall_step_s_ = 0;
  std::int32_t next_pid_ = 100;
  std::uint64_t next_start_time_ = 1;
};

}  // namespace vorlatch::simulated
