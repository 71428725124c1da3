#include "proc/process_lookup.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "base/utf8.h"
#include "platform/process_table.h"
#include "proc/bundle_identifier.h"

namespace vorlatch {
namespace {

constexpr std::uint32_t kNameBufferBytes = 256;
using NameBuffer = std::array<char, kNameBufferBytes>;

// Clears the buffer first, because a failed call leaves it unchanged, and terminates it afterwards,
// because a name that fills the buffer has no terminator.
int readName(std::int32_t pid, NameBuffer& name) {
  name.fill('\0');
  const int length = platform::proc_name(pid, name.data(), kNameBufferBytes);
  name.back() = '\0';
  return length;
}

// Calls `visit` with each process id in the kernel's order until it returns false.
template <typename Visit>
void walkProcesses(Visit visit) {
  const int needed = platform::proc_listpids(platform::PROC_ALL_PIDS, 0, nullptr, 0);
  if (needed < 1) return;
  // Allocates four times what the kernel asked for (`needed` ids, not `needed` bytes), because more
  // processes may appear between the two calls.
  const std::size_t capacity = static_cast<std::uint32_t>(needed);
  const std::size_t capacity_bytes = capacity * sizeof(std::int32_t);
  if (capacity_bytes > INT_MAX) return;
  const std::unique_ptr<std::int32_t[]> pids(new (std::nothrow) std::int32_t[capacity]);
  if (pids == nullptr) return;
  const int filled_bytes = platform::proc_listpids(platform::PROC_ALL_PIDS, 0, pids.get(),
                                                   static_cast<int>(capacity_bytes));
  if (filled_bytes < static_cast<int>(sizeof(std::int32_t))) return;
  const std::size_t count =
      std::min(static_cast<std::size_t>(filled_bytes) / sizeof(std::int32_t), capacity);
  for (std::size_t i = 0; i < count; ++i) {
    if (pids[i] >= 1 && !visit(pids[i])) return;
  }
}

bool isNamed(const char* name, const std::string& key) {
  return std::strcmp(name, key.c_str()) == 0;
}

// If processes share a name, the map keeps the first; if they share a bundle identifier, the last.
void addName(RunningProcessMap& running, const char* name, std::int32_t pid) {
  if (name[0] != '\0' && isValidUtf8(name)) running.try_emplace(name, pid);
}

void addIdentifier(RunningProcessMap& running, std::optional<std::string> identifier,
                   std::int32_t pid) {
  if (identifier && !identifier->empty()) running.insert_or_assign(*std::move(identifier), pid);
}

}  // namespace

std::int32_t pidIn(const PIDMap& pids, const std::string& key) {
  const auto entry = pids.find(key);
  return entry == pids.end() ? 0 : entry->second;
}

std::int32_t getPIDForBundleID(const std::string& key) {
  std::int32_t found = 0;
  NameBuffer name;
  walkProcesses([&](std::int32_t pid) {
    readName(pid, name);
    if (isNamed(name.data(), key) || bundleIdentifierOfProcess(pid) == key) found = pid;
    return found == 0;
  });
  return found;
}

RunningProcessMap getRunningProcessMap() {
  RunningProcessMap running;
  NameBuffer name;
  walkProcesses([&](std::int32_t pid) {
    if (readName(pid, name) >= 1) addName(running, name.data(), pid);
    addIdentifier(running, bundleIdentifierOfProcess(pid), pid);
    return true;
  });
  return running;
}

bool isNamedBy(const RunningProcess& process, const std::string& key) {
  return isNamed(process.name.c_str(), key);
}

bool isIdentifiedBy(const RunningProcess& process, const std::string& key) {
  return process.bundle_identifier == key;
}

bool isFoundBy(const RunningProcess& process, const std::string& key) {
  return isNamedBy(process, key) || isIdentifiedBy(process, key);
}

std::vector<RunningProcess> listRunningProcesses() {
  std::vector<RunningProcess> processes;
  NameBuffer name;
  walkProcesses([&](std::int32_t pid) {
    readName(pid, name);
    processes.push_back(
        {.pid = pid, .name = name.data(), .bundle_identifier = bundleIdentifierOfProcess(pid)});
    return true;
  });
  return processes;
}

std::int32_t pidForBundleIDIn(const std::vector<RunningProcess>& processes,
                              const std::string& key) {
  const auto found =
      std::find_if(processes.begin(), processes.end(),
                   [&key](const RunningProcess& process) { return isFoundBy(process, key); });
  return found == processes.end() ? 0 : found->pid;
}

RunningProcessMap runningProcessMapOf(const std::vector<RunningProcess>& processes) {
  RunningProcessMap running;
  for (const RunningProcess& process : processes) {
    addName(running, process.name.c_str(), process.pid);
    addIdentifier(running, process.bundle_identifier, process.pid);
  }
  return running;
}

}  // namespace vorlatch
