// From a target key to a running process. A key is a plain string, tried against both the name and
// the bundle identifier of every process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace vorlatch {

using PIDMap = std::unordered_map<std::string, std::int32_t>;

// The process id under a key; 0 when it is absent.
std::int32_t pidIn(const PIDMap& pids, const std::string& key);

// Process ids by process name and by bundle identifier, both kinds mixed.
using RunningProcessMap = PIDMap;

// The first process in the kernel's order whose name or bundle identifier is the key; 0 when there
// is none or the list cannot be read. An empty key finds a process whose name cannot be read. Safe
// to call from any queue, as is the next.
std::int32_t getPIDForBundleID(const std::string& key);

// Every process that runs now, from one scan; empty when the list cannot be read. Of several
// processes with one name the first in the kernel's order is in the map, of several with one bundle
// identifier the last, and an identifier replaces a name that is spelled alike.
RunningProcessMap getRunningProcessMap();

// One process of the kernel's list, with what a key is compared with.
struct RunningProcess {
  std::int32_t pid;
  std::string name;  // as the kernel gives it, UTF-8 or not; empty when it cannot be read
  std::optional<std::string> bundle_identifier;
};

// Whether a key is the process's name or its bundle identifier.
bool isNamedBy(const RunningProcess& process, const std::string& key);
bool isIdentifiedBy(const RunningProcess& process, const std::string& key);
bool isFoundBy(const RunningProcess& process, const std::string& key);

// Every process in the kernel's order; empty when the list cannot be read. The two below answer
// from such a list what getPIDForBundleID and getRunningProcessMap answer from a scan of their own.
// Safe to call from any queue.
std::vector<RunningProcess> listRunningProcesses();
std::int32_t pidForBundleIDIn(const std::vector<RunningProcess>& processes, const std::string& key);
RunningProcessMap runningProcessMapOf(const std::vector<RunningProcess>& processes);

}  // namespace vorlatch
