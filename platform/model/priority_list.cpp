#include "platform/model/priority_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>
#include <vector>

#include "platform/memorystatus.h"
#include "platform/model/bands.h"

namespace vorlatch::model {
namespace {

using Entry = platform::memorystatus_priority_entry;

constexpr std::int32_t kLastUnlistedPid = 1;  // the kernel and launchd have no jetsam priority
constexpr std::uint32_t kStateAssertion = 0x40;

struct Listed {
  LiveProcess process;
  JetsamRecord record;
};

// Returns true if the active limit is in force, false if the inactive one is. An elevated process
// in the elevated band always counts as active; otherwise the generations differ
// (proc_jetsam_state_is_active_locked up to xnu-10063, memstat_proc_is_active_locked since).
bool isActive(const Kernel& kernel, const JetsamRecord& record) {
  const Bands bands = bandsOf(kernel.generation);
  if (record.elevated && record.effective_band == bands.elevated) return true;
  if (kernel.generation != KernelGeneration::Xnu11215To11417) {
    return record.effective_band >= bands.foreground;
  }
  return record.managed ? record.assertion : record.effective_band > kIdleBand;
}

// Sets only the assertion bit of the state, because the model keeps no cause of the others.
Entry entryOf(const Kernel& kernel, std::int32_t pid, const JetsamRecord& record) {
  const MemoryLimit& limit = isActive(kernel, record) ? record.active : record.inactive;
  return {.pid = pid,
          .priority = record.effective_band,
          .user_data = record.user_data,
          .limit = reportedLimitMb(kernel, limit),
          .state = record.assertion ? kStateAssertion : 0};
}

CallResult getOneEntry(const Kernel& kernel, const JetsamTable& table, const ProcessList& processes,
                       std::int32_t pid, void* buffer, std::size_t buffersize) {
  if (buffer == nullptr) return {.result = sizeof(Entry)};
  if (buffersize != sizeof(Entry)) return {.result = -1, .error = EINVAL};
  const std::optional<LiveProcess> process = processes.find(pid);
  if (!process) return {.result = -1, .error = ESRCH};
  const Entry entry = entryOf(kernel, pid, recordOf(kernel, table, *process));
  std::memcpy(buffer, &entry, sizeof(entry));
  return {.result = sizeof(Entry)};
}

// Sorts by band, then by arrival. Processes that were never moved follow their start times, because
// a fork appends a process to its band.
std::vector<Listed> inKernelOrder(const Kernel& kernel, const JetsamTable& table,
                                  const std::vector<LiveProcess>& processes) {
  std::vector<Listed> listed;
  listed.reserve(processes.size());
  for (const LiveProcess& process : processes) {
    listed.push_back({process, recordOf(kernel, table, process)});
  }
  std::sort(listed.begin(), listed.end(), [](const Listed& a, const Listed& b) {
    return std::tie(a.record.effective_band, a.record.arrival, a.process.start_time,
                    a.process.pid) <
           std::tie(b.record.effective_band, b.record.arrival, b.process.start_time, b.process.pid);
  });
  return listed;
}

}  // namespace

CallResult getPriorityList(const Kernel& kernel, const JetsamTable& table,
                           const ProcessList& processes, std::int32_t pid, void* buffer,
                           std::size_t buffersize) {
  if (pid != 0) return getOneEntry(kernel, table, processes, pid, buffer, buffersize);
  if (buffer == nullptr) {
    const std::vector<std::int32_t> ids = processes.ids();
    const auto listed = std::count_if(ids.begin(), ids.end(),
                                      [](std::int32_t id) { return id > kLastUnlistedPid; });
    return {.result = static_cast<int>(static_cast<std::size_t>(listed) * sizeof(Entry))};
  }
  std::vector<LiveProcess> live = processes.all();
  std::erase_if(live, [](const LiveProcess& p) { return p.pid <= kLastUnlistedPid; });
  if (buffersize < live.size() * sizeof(Entry)) return {.result = -1, .error = EINVAL};
  char* out = static_cast<char*>(buffer);
  for (const Listed& listed : inKernelOrder(kernel, table, live)) {
    const Entry entry = entryOf(kernel, listed.process.pid, listed.record);
    std::memcpy(out, &entry, sizeof(entry));
    out += sizeof(entry);
  }
  return {.result = static_cast<int>(live.size() * sizeof(Entry))};
}

}  // namespace vorlatch::model
