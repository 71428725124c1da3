// The kernel calls that change one process, each with its record filled in. Results are the system
// call's: 0, or -1 and errno. Safe to call from any queue.
#pragma once

#include <cstdint>

namespace vorlatch {

// Limits in MB for the active and the inactive process; below 1 the system's default. A limit of 1
// and above is fatal: going over it ends the process.
int setMemoryLimits(std::int32_t pid, std::int32_t active_mb, std::int32_t inactive_mb);

// The jetsam band, with flags 0 or MEMORYSTATUS_SET_PRIORITY_ASSERTION.
int setJetsamPriority(std::int32_t pid, std::int32_t band, std::uint32_t flags);

// Whether the system manages the process's memory state, and whether it may freeze it. The state
// goes in the four-byte buffer, with flags 0.
int setManaged(std::int32_t pid, bool managed);
int setFreezable(std::int32_t pid, bool freezable);

int getNiceValue(std::int32_t pid);
int setNiceValue(std::int32_t pid, std::int32_t nice_value);

}  // namespace vorlatch
