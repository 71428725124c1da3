#include "platform/model/jetsam_model.h"

#include <cerrno>
#include <cstring>

#include "platform/memorystatus.h"
#include "platform/model/bands.h"
#include "platform/model/priority_list.h"

namespace vorlatch::model {
namespace {

using platform::memorystatus_memlimit_properties;
using platform::memorystatus_priority_properties;

constexpr std::size_t kBufferSizeMax = 65536;  // MEMORYSTATUS_BUFFERSIZE_MAX
constexpr std::int32_t kLaunchdPid = 1;
constexpr std::int32_t kDefaultBandAlias = -1;
constexpr std::int32_t kIdleHeadAlias = -2;
constexpr std::int32_t kLastDarwinRole = 6;

struct View {
  const Kernel& kernel;
  const JetsamTable& table;
  const ProcessList& processes;
};

struct Host {
  const Kernel& kernel;
  JetsamTable& table;
  const ProcessList& processes;
};

struct Arguments {
  std::uint32_t command;
  std::int32_t pid;
  std::uint32_t flags;
  void* buffer;
  std::size_t buffersize;
};

CallResult success() {
  return {};
}
CallResult failure(int error) {
  return {.result = -1, .error = error};
}

// Copies the record out of the caller's buffer, which need not be aligned. Returns std::nullopt if
// the buffer is null or of another size.
template <typename Record>
std::optional<Record> readRecord(const Arguments& arguments) {
  if (arguments.buffer == nullptr || arguments.buffersize != sizeof(Record)) return std::nullopt;
  Record record;
  std::memcpy(&record, arguments.buffer, sizeof(record));
  return record;
}

// Returns the state that SET_PROCESS_IS_MANAGED or SET_PROCESS_IS_FREEZABLE requests; std::nullopt
// if the buffer is invalid.
std::optional<std::uint32_t> readState(const Kernel& kernel, const Arguments& arguments) {
  if (kernel.state_argument == StateArgument::Flags) return arguments.flags;
  return readRecord<std::uint32_t>(arguments);
}

struct Placement {
  std::int32_t band;
  bool at_head = false;
  bool reserved = false;
};

// Returns the band that a requested priority means, or std::nullopt if the kernel refuses it.
std::optional<Placement> placementOf(const Bands& bands, std::int32_t priority) {
  if (priority == kDefaultBandAlias) return Placement{.band = bands.fallback};
  if (priority == kIdleHeadAlias) return Placement{.band = kIdleBand, .at_head = true};
  if (priority < kIdleBand || priority > bands.highest) return std::nullopt;
  if (priority > kIdleBand && priority <= bands.last_reserved) {
    return Placement{.band = kIdleBand, .reserved = true};
  }
  return Placement{.band = priority};
}

void moveToBand(JetsamTable& table, JetsamRecord& record, std::int32_t band, bool at_head) {
  record.effective_band = band;
  record.arrival = at_head ? -table.next_arrival : table.next_arrival;
  ++table.next_arrival;
}

void place(const Host& host, JetsamRecord& record, const Placement& placement) {
  const std::int32_t elevated = bandsOf(host.kernel.generation).elevated;
  // Since xnu-11215, memorystatus_set_priority turns a request for a reserved band into idle at
  // once, without the ageing that would raise the process to the elevated band.
  const bool to_idle_at_once =
      placement.reserved && host.kernel.generation == KernelGeneration::Xnu11215To11417;
  const bool raised = record.elevated && placement.band <= elevated && !to_idle_at_once;
  moveToBand(host.table, record, raised ? elevated : placement.band, placement.at_head);
}

void placeByAssertion(const Host& host, JetsamRecord& record, const Placement& placement) {
  const bool had_assertion = record.assertion;
  record.assertion = placement.band != kIdleBand;
  // Up to xnu-10063 memorystatus_update ignores a move to idle if the process has no assertion, and
  // returns success.
  const bool ignored = !had_assertion && !record.assertion &&
                       host.kernel.generation != KernelGeneration::Xnu11215To11417;
  if (!ignored) place(host, record, placement);
}

CallResult setPriorityProperties(const Host& host, const Arguments& arguments) {
  const auto properties = readRecord<memorystatus_priority_properties>(arguments);
  if (arguments.pid == 0 || !properties) return failure(EINVAL);
  if ((arguments.flags & ~platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION) != 0) {
    return failure(EINVAL);
  }
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  if (process->pid == kLaunchdPid) return failure(EPERM);

  JetsamRecord record = recordOf(host.kernel, host.table, *process);
  const bool is_assertion = arguments.flags != 0;
  if (is_assertion && !record.managed &&
      host.kernel.generation == KernelGeneration::Xnu11215To11417) {
    return failure(EPERM);
  }
  const auto placement = placementOf(bandsOf(host.kernel.generation), properties->priority);
  if (!placement) return failure(EINVAL);

  record.user_data = properties->user_data;
  if (is_assertion) {
    placeByAssertion(host, record, *placement);
  } else {
    record.requested_band = placement->band;
    place(host, record, *placement);
  }
  host.table.records[process->pid] = record;
  return success();
}

// A limit of 0 or below requests the system's default, which is always fatal. Since xnu-11215
// (memstat_set_memlimits_locked) the kernel recognises the default by its value: a limit that
// equals the default is fatal too, and without a configured default only the caller's attribute
// makes a limit fatal.
MemoryLimit storedLimit(const Kernel& kernel, std::int32_t limit_mb, std::uint32_t attributes) {
  const bool is_default = limit_mb <= 0;
  bool fatal = (attributes & platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL) != 0;
  if (kernel.generation == KernelGeneration::Xnu11215To11417) {
    const std::int32_t default_mb = kernel.default_task_limit_mb;
    fatal = fatal || (default_mb > 0 && (is_default || limit_mb == default_mb));
  } else {
    fatal = fatal || is_default;
  }
  return {.limit_mb = is_default ? -1 : limit_mb, .fatal = fatal};
}

CallResult setMemoryLimits(const Host& host, const Arguments& arguments) {
  const auto properties = readRecord<memorystatus_memlimit_properties>(arguments);
  if (arguments.pid == 0 || !properties) return failure(EINVAL);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  const std::uint32_t attributes =
      properties->memlimit_active_attr | properties->memlimit_inactive_attr;
  if ((attributes & ~platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL) != 0) return failure(EINVAL);

  JetsamRecord record = recordOf(host.kernel, host.table, *process);
  record.active =
      storedLimit(host.kernel, properties->memlimit_active, properties->memlimit_active_attr);
  record.inactive =
      storedLimit(host.kernel, properties->memlimit_inactive, properties->memlimit_inactive_attr);
  host.table.records[process->pid] = record;
  return success();
}

// memorystatus_memlimit_properties2_t, the longer record. Only development kernels fill in the last
// two members; they are 0 here.
struct LongMemoryLimits {
  memorystatus_memlimit_properties limits;
  std::uint32_t increase_mb;
  std::uint32_t increase_bytes;
};
static_assert(sizeof(LongMemoryLimits) == 24);

CallResult getMemoryLimits(const View& host, const Arguments& arguments) {
  const bool size_valid = arguments.buffersize == sizeof(memorystatus_memlimit_properties) ||
                          arguments.buffersize == sizeof(LongMemoryLimits);
  if (arguments.pid == 0 || arguments.buffer == nullptr || !size_valid) return failure(EINVAL);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);

  const JetsamRecord record = recordOf(host.kernel, host.table, *process);
  LongMemoryLimits answer{};
  answer.limits.memlimit_active = reportedLimitMb(host.kernel, record.active);
  answer.limits.memlimit_inactive = reportedLimitMb(host.kernel, record.inactive);
  if (record.active.fatal) {
    answer.limits.memlimit_active_attr = platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL;
  }
  if (record.inactive.fatal) {
    answer.limits.memlimit_inactive_attr = platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL;
  }
  std::memcpy(arguments.buffer, &answer, arguments.buffersize);
  return success();
}

// Moves the process at once only if flags are not 0; otherwise the change affects later requests.
// The kernel would also move a process that waits in an ageing band, but this model has no ageing.
CallResult setElevated(const Host& host, const Arguments& arguments, bool enable) {
  if (arguments.pid == 0) return failure(EINVAL);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  if (process->pid == kLaunchdPid && host.kernel.generation == KernelGeneration::Xnu11215To11417) {
    return failure(EINVAL);
  }
  JetsamRecord record = recordOf(host.kernel, host.table, *process);
  if (record.elevated == enable) return success();
  record.elevated = enable;
  const std::int32_t elevated = bandsOf(host.kernel.generation).elevated;
  const bool at_once = arguments.flags != 0;
  if (at_once && enable && record.effective_band < elevated) {
    moveToBand(host.table, record, elevated, false);
  } else if (at_once && !enable && record.effective_band == elevated) {
    moveToBand(host.table, record, kIdleBand, false);
  }
  host.table.records[process->pid] = record;
  return success();
}

CallResult setManaged(const Host& host, const Arguments& arguments) {
  const std::optional<std::uint32_t> state = readState(host.kernel, arguments);
  if (arguments.pid == 0 || !state) return failure(EINVAL);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  JetsamRecord record = recordOf(host.kernel, host.table, *process);
  record.managed = *state == 1;
  if (record.managed) record.freezable = true;
  host.table.records[process->pid] = record;
  return success();
}

CallResult getManaged(const View& host, const Arguments& arguments) {
  if (arguments.pid == 0) return failure(EINVAL);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  return {.result = recordOf(host.kernel, host.table, *process).managed ? 1 : 0};
}

// The kernel lets an unprivileged caller change itself and the members of a coalition that it
// leads. The model knows neither the caller's pid nor coalitions and refuses every unprivileged
// caller. Up to xnu-8020 the kernel restricts root in the same way. The model does so only with
// StateArgument::Flags; with StateArgument::Buffer root can change the state in every generation.
CallResult setFreezable(const Host& host, const Arguments& arguments) {
  const std::optional<std::uint32_t> state = readState(host.kernel, arguments);
  if (arguments.pid == 0 || !state) return failure(EINVAL);
  const bool privileged = host.kernel.caller_is_privileged;
  if (*state != 0 && !privileged) return failure(EPERM);
  const std::optional<LiveProcess> process = host.processes.find(arguments.pid);
  if (!process) return failure(ESRCH);
  const bool root_is_bound = host.kernel.generation == KernelGeneration::Xnu4903To8020 &&
                             host.kernel.state_argument == StateArgument::Flags;
  if (!privileged || root_is_bound) return failure(EPERM);
  JetsamRecord record = recordOf(host.kernel, host.table, *process);
  record.freezable = *state != 0;
  host.table.records[process->pid] = record;
  return success();
}

CallResult dispatchGet(const View& host, const Arguments& arguments) {
  switch (arguments.command) {
    case platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST:
      return getPriorityList(host.kernel, host.table, host.processes, arguments.pid,
                             arguments.buffer, arguments.buffersize);
    case platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES:
      return getMemoryLimits(host, arguments);
    case platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED:
      return getManaged(host, arguments);
    default:
      return failure(EINVAL);
  }
}

CallResult dispatchSet(const Host& host, const Arguments& arguments) {
  switch (arguments.command) {
    case platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES:
      return setPriorityProperties(host, arguments);
    case platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES:
      return setMemoryLimits(host, arguments);
    case platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE:
      return setElevated(host, arguments, true);
    case platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE:
      return setElevated(host, arguments, false);
    case platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED:
      return setManaged(host, arguments);
    case platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE:
      return setFreezable(host, arguments);
    default:
      return failure(EINVAL);
  }
}

}  // namespace

std::vector<std::int32_t> ProcessList::ids() const {
  std::vector<std::int32_t> ids;
  for (const LiveProcess& process : all()) ids.push_back(process.pid);
  return ids;
}

std::int32_t highestBand(KernelGeneration generation) {
  return bandsOf(generation).highest;
}

std::int32_t defaultBand(KernelGeneration generation) {
  return bandsOf(generation).fallback;
}

JetsamRecord recordOf(const Kernel& kernel, const JetsamTable& table, const LiveProcess& process) {
  const auto found = table.records.find(process.pid);
  if (found != table.records.end() && found->second.start_time == process.start_time) {
    return found->second;
  }
  JetsamRecord record;
  record.start_time = process.start_time;
  record.requested_band = defaultBand(kernel.generation);
  record.effective_band = record.requested_band;
  return record;
}

void forgetDeadProcesses(JetsamTable& table, const ProcessList& processes) {
  // Looks up the process of each record. Few processes have a record, so a list of all processes
  // would be slower.
  std::erase_if(table.records, [&processes](const auto& entry) {
    const std::optional<LiveProcess> process = processes.find(entry.first);
    return !process || process->start_time != entry.second.start_time;
  });
}

bool isGetCommand(std::uint32_t command) {
  return command == platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST ||
         command == platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES ||
         command == platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED;
}

CallResult memorystatusControl(const Kernel& kernel, JetsamTable& table,
                               const ProcessList& processes, std::uint32_t command,
                               std::int32_t pid, std::uint32_t flags, void* buffer,
                               std::size_t buffersize) {
  if (isGetCommand(command)) {
    return memorystatusGet(kernel, table, processes, command, pid, flags, buffer, buffersize);
  }
  const bool open_to_all = command == platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE;
  if (!kernel.caller_is_privileged && !open_to_all) return failure(EPERM);
  if (buffersize > kBufferSizeMax) return failure(EINVAL);
  return dispatchSet({kernel, table, processes}, {command, pid, flags, buffer, buffersize});
}

CallResult memorystatusGet(const Kernel& kernel, const JetsamTable& table,
                           const ProcessList& processes, std::uint32_t command, std::int32_t pid,
                           std::uint32_t flags, void* buffer, std::size_t buffersize) {
  if (!kernel.caller_is_privileged) return failure(EPERM);
  if (buffersize > kBufferSizeMax) return failure(EINVAL);
  return dispatchGet({kernel, table, processes}, {command, pid, flags, buffer, buffersize});
}

CallResult setDarwinRole(const Kernel& kernel, JetsamTable& table, const ProcessList& processes,
                         std::int32_t pid, std::int32_t role) {
  const std::optional<LiveProcess> process = processes.find(pid);
  if (!process) return failure(ESRCH);
  // The kernel lets users change their own processes; the model does not know the owners.
  if (!kernel.caller_is_privileged) return failure(EPERM);
  if (!processes.isApp(pid)) return failure(ENOTSUP);
  if (role < 0 || role > kLastDarwinRole) return failure(EINVAL);
  JetsamRecord record = recordOf(kernel, table, *process);
  record.darwin_role = role;
  table.records[pid] = record;
  return success();
}

}  // namespace vorlatch::model
