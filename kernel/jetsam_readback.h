// Reads jetsam bands back from the kernel, because a successful set call does not prove the band.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/memorystatus.h"

namespace vorlatch {

// No band: the process is not in the kernel's list, or the request names no particular band.
inline constexpr std::int32_t kNoJetsamPriority = -999;

// The kernel's list of all processes with their bands, the lowest band first.
struct JetsamPriorityList {
  using Entry = platform::memorystatus_priority_entry;
  std::unique_ptr<Entry[]> entries;
  std::size_t count = 0;

  [[nodiscard]] const Entry* begin() const { return entries.get(); }
  [[nodiscard]] const Entry* end() const { return entries.get() + count; }
};

// Fetches the list without retrying. Returns an empty list on failure. Safe to call from any queue.
JetsamPriorityList fetchJetsamPriorityList();

// Returns the process's band, or kNoJetsamPriority if the kernel's list cannot be read or does not
// contain the process. Safe to call from any queue.
std::int32_t getActualJetsam(std::int32_t pid);

// Logs the band read back and whether it is the requested one. If `requested` is kNoJetsamPriority,
// logs the band that the system chose. `set_result` is the set call's result; it affects only the
// message for a process that is missing from the list.
void verifyJetsamPriority(std::int32_t pid, int set_result, std::int32_t requested);

}  // namespace vorlatch
