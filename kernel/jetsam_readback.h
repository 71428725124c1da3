// Reading a jetsam band back from the kernel: a set call's own result is not trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/memorystatus.h"

namespace vorlatch {

// Stands for no value: a process that is not in the kernel's list, and a request for no particular
// band.
inline constexpr std::int32_t kNoJetsamPriority = -999;

// What the kernel holds every process at, the lowest band first.
struct JetsamPriorityList {
  using Entry = platform::memorystatus_priority_entry;
  std::unique_ptr<Entry[]> entries;
  std::size_t count = 0;

  [[nodiscard]] const Entry* begin() const { return entries.get(); }
  [[nodiscard]] const Entry* end() const { return entries.get() + count; }
};

// Fetches the list once, never again; empty when it cannot be read. Safe to call from any queue.
JetsamPriorityList fetchJetsamPriorityList();

// The band that the kernel holds the process at; kNoJetsamPriority when its list cannot be read or
// does not hold the process. Safe to call from any queue.
std::int32_t getActualJetsam(std::int32_t pid);

// Logs the band read back and whether it is the requested one, or, when `requested` is
// kNoJetsamPriority, the band that the system chose. `set_result` is the set call's result; it
// decides only what is said of a process missing from the list.
void verifyJetsamPriority(std::int32_t pid, int set_result, std::int32_t requested);

}  // namespace vorlatch
