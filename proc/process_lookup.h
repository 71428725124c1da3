// From a target key to a running process. A key is a plain string, tried against both the name and
// the bundle identifier of every process.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace vorlatch {

// Process ids by process name and by bundle identifier, both kinds mixed.
using RunningProcessMap = std::unordered_map<std::string, std::int32_t>;

// The process id under a key; 0 when it is absent.
std::int32_t runningPID(const RunningProcessMap& running, const std::string& key);

// The first process in the kernel's order whose name or bundle identifier is the key; 0 when there
// is none or the list cannot be read. An empty key finds a process whose name cannot be read. Safe
// to call from any queue, as is the next.
std::int32_t getPIDForBundleID(const std::string& key);

// Every process that runs now, from one scan; empty when the list cannot be read. Of several
// processes with one name the first in the kernel's order is in the map, of several with one bundle
// identifier the last, and an identifier replaces a name that is spelled alike.
RunningProcessMap getRunningProcessMap();

}  // namespace vorlatch
