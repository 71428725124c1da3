// The status file: which targets are held, for other programs to read. The daemon never reads it.
#pragma once

#include <cstdint>
#include <string>

namespace vorlatch {

inline constexpr const char* kStatusFileName = "com.zel.vorlatch.status.plist";

// The three numbers of an entry.
namespace status_keys {
inline constexpr const char* kPid = "pid";
inline constexpr const char* kNiceValue = "n";
inline constexpr const char* kJetsamPriority = "p";
}  // namespace status_keys

// Sets the target's entry to the process id its settings were applied to and to the nice value and
// jetsam band read back from the kernel; with pid 0, removes the entry. Every call writes the file
// whole, with mode 0666, even when nothing changed. The first call of the daemon's life starts from
// nothing, so entries of an earlier run go. A failed write is silent; the next one makes up for it.
// Safe to call from any queue.
void updateStatusFile(const std::string& key, std::int32_t pid, std::int32_t nice_value,
                      std::int32_t jetsam_priority);

// Removes the target's entry, by the same call.
inline void removeStatusEntry(const std::string& key) {
  updateStatusFile(key, 0, 0, 0);
}

}  // namespace vorlatch
