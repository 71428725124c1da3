// A machine of a few processes for the model's tests.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "platform/model/jetsam_model.h"
#include "tests/support/jetsam_commands.h"

namespace vorlatch::model {

// The kernels of iOS 12 to 15, 16 to 17, and 18.
inline constexpr auto kIos15 = KernelGeneration::Xnu4903To8020;
inline constexpr auto kIos17 = KernelGeneration::Xnu8792To10063;
inline constexpr auto kIos18 = KernelGeneration::Xnu11215To11417;
inline constexpr KernelGeneration kGenerations[] = {kIos15, kIos17, kIos18};

inline constexpr std::int32_t kDaemonPid = 100;
inline constexpr std::int32_t kAppPid = 200;
inline constexpr std::int32_t kOtherPid = 300;
inline constexpr std::int32_t kGonePid = 999;

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

class Machine : public JetsamCommands {
 public:
  explicit Machine(KernelGeneration generation = kIos17,
                   StateArgument argument = StateArgument::Buffer)
      : JetsamCommands([this](auto... arguments) {
          return memorystatusControl(kernel, table, processes, arguments...);
        }) {
    kernel.generation = generation;
    kernel.state_argument = argument;
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

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
