// The kernel's calls on Linux. Nice values are the machine's own; the model provides memory status
// and Darwin roles, which Linux lacks.
#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/linux/installation.h"
#include "platform/linux/jetsam_state_file.h"
#include "platform/linux/process_stat.h"
#include "platform/memorystatus.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::platform {
namespace {

constexpr std::uint32_t kHighestId = 0x7fffffff;

// An app's executable is directly in a directory whose name ends with this.
constexpr std::string_view kAppDirectorySuffix = ".app";

bool runsFromAppBundle(pid_t pid) {
  ExecutablePathBuffer buffer;
  const std::string_view path = readExecutablePath(pid, buffer);
  const std::size_t slash = path.rfind('/');
  return slash != std::string_view::npos && path.substr(0, slash).ends_with(kAppDirectorySuffix);
}

class MachineProcesses final : public model::ProcessList {
 public:
  [[nodiscard]] std::vector<model::LiveProcess> all() const override {
    std::vector<model::LiveProcess> processes;
    for (const std::int32_t pid : listProcessIds()) {
      const std::optional<ProcessStat> stat = readProcessStat(pid);
      if (stat && !stat->has_exited) {
        processes.push_back({.pid = pid, .start_time = stat->start_time_ticks});
      }
    }
    return processes;
  }

  [[nodiscard]] std::vector<std::int32_t> ids() const override { return listProcessIds(); }

  [[nodiscard]] std::optional<model::LiveProcess> find(std::int32_t pid) const override {
    const std::optional<ProcessStat> stat = readProcessStat(pid);
    if (!stat || stat->has_exited) return std::nullopt;
    return model::LiveProcess{.pid = pid, .start_time = stat->start_time_ticks};
  }

  [[nodiscard]] bool isApp(std::int32_t pid) const override { return runsFromAppBundle(pid); }
};

model::Kernel thisKernel() {
  return {.generation = model::KernelGeneration::Xnu8792To10063,
          .state_argument = model::StateArgument::Buffer,
          .default_task_limit_mb = 2048,
          .caller_is_privileged = geteuid() == 0};
}

JetsamStateFile& sharedState() {
  static JetsamStateFile& state = *new JetsamStateFile(runtimePath("jetsam.state"));
  return state;
}

// Calls the model with the state that all programs of this root share. An unprivileged caller gets
// only the model's refusals, without any access to the shared state.
template <typename Question>
model::CallResult askModel(const Question& question) {
  const model::Kernel kernel = thisKernel();
  const MachineProcesses processes;
  model::CallResult result;
  const auto ask = [&](model::JetsamTable& table) { result = question(kernel, table, processes); };
  if (kernel.caller_is_privileged) {
    sharedState().update(processes, ask);
  } else {
    model::JetsamTable nothing_known;
    ask(nothing_known);
  }
  return result;
}

// Like askModel, for calls that change nothing.
template <typename Question>
model::CallResult consultModel(const Question& question) {
  const model::Kernel kernel = thisKernel();
  const MachineProcesses processes;
  model::CallResult result;
  const auto ask = [&](const model::JetsamTable& table) {
    result = question(kernel, table, processes);
  };
  if (kernel.caller_is_privileged) {
    sharedState().look(ask);
  } else {
    ask({});
  }
  return result;
}

// Restores errno on destruction, because a successful system call would leave it unchanged. fail()
// sets the errno of a failed call instead.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
  ~ErrnoKeeper() { errno = value_; }
  int fail(int error) {
    value_ = error;
    return -1;
  }

 private:
  int value_ = errno;
};

int answer(ErrnoKeeper& keeper, const model::CallResult& result) {
  return result.error == 0 ? result.result : keeper.fail(result.error);
}

// On Linux each thread has its own nice value. The main thread's counts as the process's; this
// function sets the others as far as permitted.
void setNiceOfOtherThreads(pid_t pid, int value) {
  struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
  };
  std::array<char, 32> path{};
  std::snprintf(path.data(), path.size(), "/proc/%d/task", pid);
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.data()));
  if (!directory) return;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    pid_t thread = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), thread);
    if (parsed.ec != std::errc{} || thread == pid) continue;
    ::setpriority(::PRIO_PROCESS, static_cast<id_t>(thread), value);
  }
}

std::int32_t callerOr(std::uint32_t who) {
  return who == 0 ? getpid() : static_cast<std::int32_t>(who);
}

}  // namespace

int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                         std::size_t buffersize) {
  ErrnoKeeper keeper;
  if (model::isGetCommand(command)) {
    return answer(keeper,
                  consultModel([&](const model::Kernel& kernel, const model::JetsamTable& table,
                                   const model::ProcessList& processes) {
                    return model::memorystatusGet(kernel, table, processes, command, pid, flags,
                                                  buffer, buffersize);
                  }));
  }
  return answer(keeper, askModel([&](const model::Kernel& kernel, model::JetsamTable& table,
                                     const model::ProcessList& processes) {
                  return model::memorystatusControl(kernel, table, processes, command, pid, flags,
                                                    buffer, buffersize);
                }));
}

int getpriority(int which, std::uint32_t who) {
  ErrnoKeeper keeper;
  if (who > kHighestId) return keeper.fail(EINVAL);
  const std::int32_t pid = callerOr(who);
  if (which == ::PRIO_PROCESS) {
    errno = 0;
    const int value = ::getpriority(::PRIO_PROCESS, static_cast<id_t>(pid));
    return errno == 0 ? value : keeper.fail(errno);
  }
  if (which != PRIO_DARWIN_ROLE) return keeper.fail(EINVAL);
  return answer(keeper,
                consultModel([pid](const model::Kernel& kernel, const model::JetsamTable& table,
                                   const model::ProcessList& processes) -> model::CallResult {
                  const std::optional<model::LiveProcess> process = processes.find(pid);
                  if (!process) return {.result = -1, .error = ESRCH};
                  return {.result = model::recordOf(kernel, table, *process).darwin_role};
                }));
}

int setpriority(int which, std::uint32_t who, int value) {
  ErrnoKeeper keeper;
  if (who > kHighestId) return keeper.fail(EINVAL);
  const std::int32_t pid = callerOr(who);
  if (which == ::PRIO_PROCESS) {
    if (::setpriority(::PRIO_PROCESS, static_cast<id_t>(pid), value) != 0) {
      return keeper.fail(errno);
    }
    setNiceOfOtherThreads(pid, value);
    return 0;
  }
  if (which != PRIO_DARWIN_ROLE) return keeper.fail(EINVAL);
  return answer(keeper,
                askModel([pid, value](const model::Kernel& kernel, model::JetsamTable& table,
                                      const model::ProcessList& processes) {
                  return model::setDarwinRole(kernel, table, processes, pid, value);
                }));
}

}  // namespace vorlatch::platform
