// The simulated device: processes, kernel, clock, and the results that a test scripts for calls.
// The platform functions act on the process's only Device; tests use this class. Use it from one
// thread.
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

#include "platform/memory_use.h"
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
  // If set, the system replaces every nice value or band that a call sets by this one.
  std::optional<std::int32_t> overriding_nice = std::nullopt;
  std::optional<std::int32_t> overriding_band = std::nullopt;
  std::optional<platform::ProcessMemory> memory = std::nullopt;  // empty: hidden from the caller
};

struct Launch {
  std::string name;
  std::string executable_path = "/usr/libexec/" + name;
  std::int32_t pid = 0;  // 0: the next free pid
  std::int32_t nice_value = 0;
  std::optional<platform::ProcessMemory> memory = std::nullopt;
};

// Changes the result of the calls of one function; `pid` and `command` restrict it to some of them.
// `command` is memorystatus_control's command, or `which` of getpriority and setpriority.
struct Script {
  std::string function;
  std::optional<int> command = std::nullopt;
  std::optional<std::int32_t> pid = std::nullopt;
  int first = 1;  // the first matching call that it applies to, counted from 1
  int count = std::numeric_limits<int>::max();
  // The result to return instead of making the real call; with `acts`, after making it.
  std::optional<int> result = std::nullopt;
  int error = 0;
  bool acts = false;
  std::optional<std::string> buffer = std::nullopt;  // the bytes that the call leaves in its buffer
  std::uint64_t takes_ns = 0;                        // how long the call takes
  std::function<void()> meanwhile = nullptr;         // runs during the call
  int seen = 0;
};

// One platform call as recorded in the trace.
struct Call {
  std::string function;
  std::string text;  // with arguments, the buffer's bytes and the result
  model::CallResult answer = {};
  std::string left =
      {};  // the buffer's first bytes after the call: as many as the result says, or 32
  std::uint64_t at_ns = 0;
};

class Device {
 public:
  Device();
  static Device& get();

  // The process list has the newest process first, and zombies last.
  std::int32_t launch(const Launch& launch);
  void exit(std::int32_t pid);
  void becomeZombie(std::int32_t pid);
  // Returns the running process with this pid, or null if there is none or only a zombie.
  Process* find(std::int32_t pid);
  [[nodiscard]] const std::list<Process>& processes() const { return processes_; }
  // The jetsam state of a running process.
  model::JetsamRecord jetsam(std::int32_t pid);

  void script(Script script) { scripts_.push_back(std::move(script)); }
  // If set, is asked before each call of the kernel and the process table, and returns a script for
  // this call alone, or nothing. Its arguments are those of call().
  std::function<std::optional<Script>(std::string_view function, int command, std::int32_t pid,
                                      bool has_buffer)>
      interference;
  void clearScripts() { scripts_.clear(); }

  // Posts a notification, as another program would.
  void post(const std::string& name);

  void runForNs(std::uint64_t duration_ns) { scheduler.runUntil(scheduler.nowNs() + duration_ns); }
  void stepWallClock(std::int64_t seconds) { wall_step_s_ += seconds; }
  // The device's local time as seconds since 1970, as if it were UTC.
  [[nodiscard]] std::int64_t wallSeconds() const;

  // Both return the recorded calls and clear the trace. takeTrace returns only the texts, and if
  // functions are named, only of these.
  std::vector<Call> takeCalls() { return std::exchange(trace_, {}); }
  std::vector<std::string> takeTrace(const std::vector<std::string>& functions = {});

  platform::Scheduler scheduler;
  model::Kernel kernel;
  model::JetsamTable jetsam_table;
  std::string root_prefix_library = "no-such-library";
  std::optional<platform::MachineMemory> memory;
  std::string crash_reports;              // the folder
  std::vector<std::string> applications;  // folders
  std::string global_preferences;         // the file
  bool is_tracing = true;

  // For the platform functions.
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

// The bytes in hexadecimal, in groups of four, as in the trace: "{01000000 ffffffff}".
std::string hexGroups(const std::string& bytes);

// Presents the device's processes to the kernel model.
class LiveProcesses : public model::ProcessList {
 public:
  explicit LiveProcesses(Device& device) : device_(&device) {}

  [[nodiscard]] std::vector<model::LiveProcess> all() const override;
  [[nodiscard]] std::optional<model::LiveProcess> find(std::int32_t pid) const override;
  [[nodiscard]] bool isApp(std::int32_t pid) const override;

 private:
  Device* device_;
};

}  // namespace vorlatch::simulated
