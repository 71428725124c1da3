// A machine of a few processes, and short forms of the model's commands, for its tests.
#pragma once

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/memorystatus.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

inline std::ostream& operator<<(std::ostream& out, const CallResult& result) {
  return out << '{' << result.result << ", errno " << result.error << '}';
}

inline constexpr CallResult kSuccess{};

inline CallResult refusal(int error) {
  return {.result = -1, .error = error};
}

inline constexpr std::uint32_t kGetPriorityList = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST;
inline constexpr std::uint32_t kSetPriority = platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES;
inline constexpr std::uint32_t kSetLimits = platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES;
inline constexpr std::uint32_t kGetLimits = platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES;
inline constexpr std::uint32_t kElevate =
    platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE;
inline constexpr std::uint32_t kLower =
    platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE;
inline constexpr std::uint32_t kSetManaged = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED;
inline constexpr std::uint32_t kGetManaged = platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED;
inline constexpr std::uint32_t kSetFreezable = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE;
inline constexpr std::uint32_t kAssertion = platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION;

// The kernels of iOS 12 to 15, 16 to 17, and 18.
inline constexpr auto kIos15 = KernelGeneration::Xnu4903To8020;
inline constexpr auto kIos17 = KernelGeneration::Xnu8792To10063;
inline constexpr auto kIos18 = KernelGeneration::Xnu11215To11417;
inline constexpr KernelGeneration kGenerations[] = {kIos15, kIos17, kIos18};

// An entry of the priority list: pid, band, user data, limit and state.
using Entry = std::array<std::int64_t, 5>;
// The limits of a process: active and its attributes, inactive and its attributes.
using Limits = std::array<std::int64_t, 4>;

inline constexpr std::int32_t kAppPid = 200;

class FixedProcesses final : public ProcessList {
 public:
  explicit FixedProcesses(std::vector<LiveProcess> processes) : processes_(std::move(processes)) {}
  [[nodiscard]] std::vector<LiveProcess> all() const override { return processes_; }
  [[nodiscard]] std::optional<LiveProcess> find(std::int32_t pid) const override {
    for (const LiveProcess& process : processes_) {
      if (process.pid == pid) return process;
    }
    return std::nullopt;
  }
  [[nodiscard]] bool isApp(std::int32_t pid) const override { return pid == kAppPid; }

 private:
  std::vector<LiveProcess> processes_;
};

inline constexpr std::int32_t kDaemonPid = 100;
inline constexpr std::int32_t kOtherPid = 300;
inline constexpr std::int32_t kGonePid = 999;

class Machine {
 public:
  explicit Machine(KernelGeneration generation, StateArgument argument = StateArgument::Buffer) {
    kernel.generation = generation;
    kernel.state_argument = argument;
  }
  Machine() = default;

  CallResult control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                     std::size_t size) {
    return memorystatusControl(kernel, table, processes, command, pid, flags, buffer, size);
  }

  CallResult setPriority(std::int32_t pid, std::uint32_t flags, std::int32_t priority,
                         std::uint64_t user_data = 0) {
    platform::memorystatus_priority_properties properties{priority, 0, user_data};
    return control(kSetPriority, pid, flags, &properties, sizeof(properties));
  }

  CallResult setLimits(std::int32_t pid, platform::memorystatus_memlimit_properties limits) {
    return control(kSetLimits, pid, 0, &limits, sizeof(limits));
  }

  std::optional<Limits> limits(std::int32_t pid) {
    platform::memorystatus_memlimit_properties limits{};
    const CallResult result = control(kGetLimits, pid, 0, &limits, sizeof(limits));
    if (result != kSuccess) return std::nullopt;
    return Limits{limits.memlimit_active, limits.memlimit_active_attr, limits.memlimit_inactive,
                  limits.memlimit_inactive_attr};
  }

  // The command with its state both in the buffer and in the flags: every reading hears it.
  CallResult setState(std::uint32_t command, std::int32_t pid, std::uint32_t state) {
    return control(command, pid, state, &state, sizeof(state));
  }

  CallResult setManaged(std::int32_t pid, std::uint32_t state) {
    return setState(kSetManaged, pid, state);
  }

  CallResult elevate(std::int32_t pid, bool enable, std::uint32_t at_once) {
    return control(enable ? kElevate : kLower, pid, at_once, nullptr, 0);
  }

  // The whole list, or one process's entry.
  std::vector<Entry> list(std::int32_t pid = 0) {
    std::array<platform::memorystatus_priority_entry, 16> buffer{};
    const CallResult result = control(kGetPriorityList, pid, 0, &buffer,
                                      (pid == 0 ? buffer.size() : 1) * sizeof(buffer[0]));
    std::vector<Entry> entries;
    for (std::size_t i = 0; i * sizeof(buffer[0]) < static_cast<std::size_t>(result.result); ++i) {
      entries.push_back({buffer[i].pid, buffer[i].priority,
                         static_cast<std::int64_t>(buffer[i].user_data), buffer[i].limit,
                         buffer[i].state});
    }
    return entries;
  }

  [[nodiscard]] JetsamRecord record(std::int32_t pid) const {
    return recordOf(kernel, table, processes.find(pid).value_or(LiveProcess{}));
  }

  [[nodiscard]] std::int32_t band(std::int32_t pid) const { return record(pid).effective_band; }

  Kernel kernel;
  JetsamTable table;
  FixedProcesses processes{{{.pid = kOtherPid, .start_time = 30},
                            {.pid = kAppPid, .start_time = 20},
                            {.pid = kDaemonPid, .start_time = 10},
                            {.pid = 1, .start_time = 1},
                            {.pid = 0, .start_time = 0}}};
};

}  // namespace vorlatch::model
