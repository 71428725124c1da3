// The platform functions; each makes one call on the simulated device.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "platform/listening_socket.h"
#include "platform/local_time.h"
#include "platform/memory_use.h"
#include "platform/memorystatus.h"
#include "platform/notifications.h"
#include "platform/process_table.h"
#include "platform/queues.h"
#include "platform/root_prefix_library.h"
#include "platform/system_paths.h"
#include "tests/simulated/device.h"

namespace vorlatch::platform {
namespace {

using simulated::Device;
using simulated::LiveProcesses;
using simulated::Process;
using Answer = Device::Answer;

constexpr std::size_t kLongestProcessName = 31;
constexpr int kSpareProcesses = 20;  // proc_listpids leaves room for new processes
constexpr std::uint32_t kSmallestNameBuffer = 32;
constexpr std::uint32_t kSmallestPathBuffer = 1024;
constexpr std::uint32_t kLargestPathBuffer = 4096;

template <typename... Parts>
std::string list(const Parts&... parts) {
  std::string text;
  ((text += (text.empty() ? "" : ", ") + parts), ...);
  return text;
}

std::string number(std::int64_t value) {
  return std::to_string(value);
}
std::string pidText(std::int64_t pid) {
  return pid == getpid() ? "self" : number(pid);
}
std::string bufferText(const void* buffer) {
  return buffer == nullptr ? "null" : "&";
}
std::string timeText(std::uint64_t ns) {
  return ns == kNever ? "never" : std::to_string(ns);
}

void override(const Process& process, model::JetsamTable& table) {
  const auto record = table.records.find(process.pid);
  if (process.overriding_band && record != table.records.end()) {
    record->second.effective_band = *process.overriding_band;
  }
}

Answer priorityOf(int which, std::int32_t pid) {
  if (which != PRIO_PROCESS || pid < 0) return {.result = -1, .error = EINVAL};
  const Process* process = Device::get().find(pid == 0 ? getpid() : pid);
  if (process == nullptr) return {.result = -1, .error = ESRCH};
  return {.result = process->nice_value};
}

Answer setPriorityOf(int which, std::int32_t pid, int value) {
  Device& device = Device::get();
  if (pid < 0) return {.result = -1, .error = EINVAL};  // a pid above the largest possible one
  if (which == PRIO_DARWIN_ROLE) {
    return model::setDarwinRole(device.kernel, device.jetsam_table, LiveProcesses(device), pid,
                                value);
  }
  if (which != PRIO_PROCESS) return {.result = -1, .error = EINVAL};
  Process* process = device.find(pid == 0 ? getpid() : pid);
  if (process == nullptr) return {.result = -1, .error = ESRCH};
  process->nice_value = process->overriding_nice.value_or(std::clamp(value, -20, 20));
  return {};
}

Answer listProcesses(std::uint32_t type, void* buffer, int buffersize) {
  if (type != PROC_ALL_PIDS) return {.result = 0, .error = EINVAL};
  const auto& processes = Device::get().processes();
  const int count = static_cast<int>(processes.size());
  constexpr int kBytesPerPid = sizeof(std::int32_t);
  if (buffer == nullptr) return {.result = (count + kSpareProcesses) * kBytesPerPid};
  if (buffersize < kBytesPerPid) return {.result = 0, .error = ENOMEM};
  const int fitting = std::min(count, buffersize / kBytesPerPid);
  auto* next = static_cast<char*>(buffer);
  auto process = processes.begin();
  for (int i = 0; i < fitting; ++i, ++process, next += kBytesPerPid) {
    std::memcpy(next, &process->pid, kBytesPerPid);
  }
  return {.result = fitting * kBytesPerPid};
}

// A call that copies a text of a process into the caller's scratch buffer, or answers with an
// error.
template <typename FindText>
int textCall(const char* function, int pid, void* buffer, std::uint32_t size,
             const FindText& find_text) {
  Device& device = Device::get();
  std::string arguments;
  if (device.is_tracing) {
    const auto* bytes = static_cast<const char*>(buffer);
    // All bytes are zero if the buffer equals itself shifted by one; memcmp is fast on long
    // buffers.
    const bool is_zeroed = bytes[0] == '\0' && std::memcmp(bytes, bytes + 1, size - 1) == 0;
    arguments = list(pidText(pid), std::string(is_zeroed ? "zeros" : "leftovers"), number(size));
  }
  return device.call(function, 0, pid, arguments, buffer, size, [&]() -> Answer {
    int error = 0;
    const std::string_view text = find_text(device.find(pid), error);
    if (error != 0) return {.result = 0, .error = error};
    std::memcpy(buffer, text.data(), text.size());
    static_cast<char*>(buffer)[text.size()] = '\0';
    return {.result = static_cast<int>(text.size())};
  });
}

}  // namespace

int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                         std::size_t buffersize) {
  Device& device = Device::get();
  const std::string arguments =
      device.is_tracing ? list(number(command), pidText(pid), number(flags), bufferText(buffer),
                               number(static_cast<std::int64_t>(buffersize)))
                        : std::string();
  return device.call(
      "memorystatus_control", static_cast<int>(command), pid, arguments, buffer, buffersize, [&] {
        const Answer answer =
            model::memorystatusControl(device.kernel, device.jetsam_table, LiveProcesses(device),
                                       command, pid, flags, buffer, buffersize);
        if (const Process* process = device.find(pid)) {
          override(*process, device.jetsam_table);
        }
        return answer;
      });
}

int getpriority(int which, std::uint32_t who) {
  const auto pid = static_cast<std::int32_t>(who);
  return Device::get().call("getpriority", which, pid, list(number(which), pidText(pid)), nullptr,
                            0, [&] { return priorityOf(which, pid); });
}

int setpriority(int which, std::uint32_t who, int value) {
  const auto pid = static_cast<std::int32_t>(who);
  return Device::get().call("setpriority", which, pid,
                            list(number(which), pidText(pid), number(value)), nullptr, 0,
                            [&] { return setPriorityOf(which, pid, value); });
}

int proc_listpids(std::uint32_t type, std::uint32_t typeinfo, void* buffer, int buffersize) {
  return Device::get().call(
      "proc_listpids", 0, 0,
      list(number(type), number(typeinfo), bufferText(buffer), number(buffersize)), buffer,
      static_cast<std::size_t>(buffersize),
      [&] { return listProcesses(type, buffer, buffersize); });
}

int proc_name(int pid, void* buffer, std::uint32_t size) {
  const auto find = [size](const Process* process, int& error) -> std::string_view {
    error = size < kSmallestNameBuffer ? ENOMEM : process == nullptr ? ESRCH : 0;
    if (error != 0) return {};
    return std::string_view(process->name).substr(0, kLongestProcessName);
  };
  return textCall("proc_name", pid, buffer, size, find);
}

int proc_pidpath(int pid, void* buffer, std::uint32_t size) {
  const auto find = [size](const Process* process, int& error) -> std::string_view {
    const std::string_view path =
        process != nullptr ? std::string_view(process->executable_path) : std::string_view();
    if (size < kSmallestPathBuffer) {
      error = ENOMEM;
    } else if (size > kLargestPathBuffer) {
      error = EOVERFLOW;
    } else if (path.empty()) {
      error = ESRCH;
    } else if (path.size() >= size) {
      error = ENOSPC;
    }
    return path;
  };
  return textCall("proc_pidpath", pid, buffer, size, find);
}

SerialQueue& makeSerialQueue(const char* label) {
  Device& device = Device::get();
  device.trace("makeSerialQueue", list(std::string("makeSerialQueue(\"") + label + "\")"));
  return device.scheduler.makeQueue(label);
}

void async(SerialQueue& queue, Work work) {
  Device::get().scheduler.send(queue, std::move(work));
}

Timer startTimer(SerialQueue& queue, const TimerSchedule& schedule, Work handler) {
  Device& device = Device::get();
  Timer timer(device.scheduler.start(queue, schedule, std::move(handler)));
  device.trace("startTimer",
               "startTimer(" +
                   list(queue.label(), timeText(schedule.start_ns), timeText(schedule.interval_ns),
                        timeText(schedule.leeway_ns)) +
                   ") = timer " + number(timer->id));
  return timer;
}

void CancelTimer::operator()(TimerSource* source) const {
  Device& device = Device::get();
  device.trace("cancelTimer", "cancelTimer(timer " + number(source->id) + ")");
  device.scheduler.cancel(source);
}

// Returns at once, because the test advances time.
void runMainLoop() {
  Device::get().trace("runMainLoop", "runMainLoop()");
}

void observeNotification(const char* name, Work handler) {
  Device& device = Device::get();
  device.trace("observeNotification", std::string("observeNotification(\"") + name + "\")");
  device.observe(name, std::move(handler));
}

bool postNotification(const char* name) {
  Device::get().post(name);
  return true;
}

std::string localTimeStamp() {
  const std::chrono::sys_seconds now{std::chrono::seconds(Device::get().wallSeconds())};
  const auto midnight = std::chrono::floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(now - midnight);
  char stamp[32];
  std::snprintf(stamp, sizeof(stamp), "%02u-%02u %02d:%02d:%02d", unsigned{date.month()},
                unsigned{date.day()}, static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  Device::get().trace("localTimeStamp", stamp);
  return stamp;
}

std::optional<ProcessMemory> memoryOfProcess(int pid) {
  const Process* process = Device::get().find(pid);
  Device::get().trace("memoryOfProcess", "memoryOfProcess(" + pidText(pid) + ")");
  errno = process == nullptr ? ESRCH : EPERM;
  return process != nullptr ? process->memory : std::nullopt;
}

std::optional<MachineMemory> memoryOfMachine() {
  return Device::get().memory;
}

std::string crashReportDirectory() {
  return Device::get().crash_reports;
}

std::vector<std::string> applicationDirectories() {
  return Device::get().applications;
}

std::string globalPreferencesPath() {
  return Device::get().global_preferences;
}

std::vector<int> activatedSockets() {
  return {};
}

bool startsServersOnDemand() {
  return true;
}

const char* rootPrefixLibraryName() {
  return Device::get().root_prefix_library.c_str();
}

}  // namespace vorlatch::platform
