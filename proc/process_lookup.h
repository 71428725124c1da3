// Finds the running process for a target key. A key is a plain string; it is compared with both the
// name and the bundle identifier of every process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace vorlatch {

using PIDMap = std::unordered_map<std::string, std::int32_t>;

// Returns the process id for the key, or 0 if the key is absent.
std::int32_t pidIn(const PIDMap& pids, const std::string& key);

// Maps both process names and bundle identifiers to process ids.
using RunningProcessMap = PIDMap;

// Returns the first process, in the kernel's order, whose name or bundle identifier is the key; 0
// if there is none or the list cannot be read. An empty key matches a process whose name cannot be
// read. Safe to call from any queue.
std::int32_t getPIDForBundleID(const std::string& key);

// Returns all running processes, from one scan; empty if the list cannot be read. If several
// processes share a name, the first in the kernel's order wins; if several share a bundle
// identifier, the last wins. An identifier wins over an equal name. Safe to call from any queue.
RunningProcessMap getRunningProcessMap();

// One running process, with the name and the identifier that keys are compared with.
struct RunningProcess {
  std::int32_t pid;
  std::string name;  // as the kernel gives it, UTF-8 or not; empty if it cannot be read
  std::optional<std::string> bundle_identifier;
};

// Return true if the key is the process's name; its bundle identifier; either of them.
bool isNamedBy(const RunningProcess& process, const std::string& key);
bool isIdentifiedBy(const RunningProcess& process, const std::string& key);
bool isFoundBy(const RunningProcess& process, const std::string& key);

// listRunningProcesses returns every process in the kernel's order; empty if the list cannot be
// read. The other two answer from such a list as getPIDForBundleID and getRunningProcessMap do from
// their own scan. Safe to call from any queue.
std::vector<RunningProcess> listRunningProcesses();
std::int32_t pidForBundleIDIn(const std::vector<RunningProcess>& processes, const std::string& key);
RunningProcessMap runningProcessMapOf(const std::vector<RunningProcess>& processes);

}  // namespace vorlatch
