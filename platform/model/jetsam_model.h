// The jetsam side of the kernel, for platforms that have none: computes what memorystatus_control
// and the Darwin role calls would return for the processes of a host. Facts are from
// xnu-11417.101.15, bsd/kern/kern_memorystatus.c and kern_memorystatus_freeze.c, unless a comment
// says otherwise. Holds no lock and does no input or output: the host passes in the table and the
// live processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vorlatch::model {

// Kernel generations differ in their band numbers and in a few refusals.
enum class KernelGeneration : std::uint8_t {
  Xnu4903To8020,    // up to iOS 15: bands 0 to 21
  Xnu8792To10063,   // iOS 16 and 17: the same bands times ten, 0 to 210
  Xnu11215To11417,  // iOS 18: an assertion on an unmanaged process is refused
};

// Where commands 16 and 18 take the new state from. xnu reads the flags. Buffer reads the four-byte
// buffer instead, so that a state passed there takes effect.
enum class StateArgument : std::uint8_t { Buffer, Flags };

struct Kernel {
  KernelGeneration generation = KernelGeneration::Xnu8792To10063;
  StateArgument state_argument = StateArgument::Buffer;
  // The limit in MB that is reported for a process without a limit of its own; -1: none.
  std::int32_t default_task_limit_mb = -1;
  // Whether the caller is root or holds com.apple.private.memorystatus.
  bool caller_is_privileged = true;
};

std::int32_t highestBand(KernelGeneration generation);
std::int32_t defaultBand(KernelGeneration generation);

// A process as the host lists it. The same pid with another start time is another process.
struct LiveProcess {
  std::int32_t pid = 0;
  std::uint64_t start_time = 0;
};

// The processes that run now, without zombies.
class ProcessList {
 public:
  ProcessList() = default;
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;
  virtual ~ProcessList() = default;
  [[nodiscard]] virtual std::vector<LiveProcess> all() const = 0;
  [[nodiscard]] virtual std::optional<LiveProcess> find(std::int32_t pid) const = 0;
  // Returns true if a live process runs from an app bundle; Darwin roles apply only to apps.
  [[nodiscard]] virtual bool isApp(std::int32_t pid) const = 0;
  // Returns only the process ids, which some hosts can list faster; may include zombies.
  [[nodiscard]] virtual std::vector<std::int32_t> ids() const;
};

struct MemoryLimit {
  std::int32_t limit_mb = -1;  // -1: the system's default
  bool fatal = true;
  friend bool operator==(const MemoryLimit&, const MemoryLimit&) = default;
};

// What the kernel keeps per process. A process without a record has the defaults.
struct JetsamRecord {
  std::uint64_t start_time = 0;
  // Order within a band. A request moves the process to the tail of its band (positive, ascending)
  // or, with priority -2, to the head (negative, descending). 0: never moved.
  std::int64_t arrival = 0;
  std::int32_t requested_band = 0;
  std::int32_t effective_band = 0;
  std::uint64_t user_data = 0;
  MemoryLimit active;
  MemoryLimit inactive;
  std::int32_t darwin_role = 0;
  bool assertion = false;
  bool managed = false;
  bool freezable = false;
  bool elevated = false;
  friend bool operator==(const JetsamRecord&, const JetsamRecord&) = default;
};

struct JetsamTable {
  std::map<std::int32_t, JetsamRecord> records;  // by pid
  std::int64_t next_arrival = 1;
  friend bool operator==(const JetsamTable&, const JetsamTable&) = default;
};

// Returns the record of a live process. Returns the defaults if the table has no record, or only
// that of an earlier process with the same pid.
JetsamRecord recordOf(const Kernel& kernel, const JetsamTable& table, const LiveProcess& process);

// Removes the records of processes that are no longer live.
void forgetDeadProcesses(JetsamTable& table, const ProcessList& processes);

// What the system call returns: the result, and errno if the result is -1 (0 otherwise).
struct CallResult {
  int result = 0;
  int error = 0;
  friend bool operator==(const CallResult&, const CallResult&) = default;
};

CallResult memorystatusControl(const Kernel& kernel, JetsamTable& table,
                               const ProcessList& processes, std::uint32_t command,
                               std::int32_t pid, std::uint32_t flags, void* buffer,
                               std::size_t buffersize);

// isGetCommand returns true for commands that change nothing. memorystatusGet answers only those;
// memorystatusControl answers them too.
bool isGetCommand(std::uint32_t command);
CallResult memorystatusGet(const Kernel& kernel, const JetsamTable& table,
                           const ProcessList& processes, std::uint32_t command, std::int32_t pid,
                           std::uint32_t flags, void* buffer, std::size_t buffersize);

// setpriority with PRIO_DARWIN_ROLE. Fails with ENOTSUP unless the process is an app
// (xnu-11417.101.15, bsd/kern/kern_resource.c, proc_set_darwin_role).
CallResult setDarwinRole(const Kernel& kernel, JetsamTable& table, const ProcessList& processes,
                         std::int32_t pid, std::int32_t role);

}  // namespace vorlatch::model
