// The status file: tells other programs which targets are held. The daemon never reads it.
#pragma once

#include <cstdint>
#include <string>

namespace vorlatch {

inline constexpr const char* kStatusFileName = "com.zel.vorlatch.status.plist";

// The keys of an entry; each value is a number.
namespace status_keys {
inline constexpr const char* kPid = "pid";
inline constexpr const char* kNiceValue = "n";
inline constexpr const char* kJetsamPriority = "p";
}  // namespace status_keys

// Sets the target's entry: the process id its settings were applied to, and the nice value and
// jetsam band read back from the kernel. With pid 0, removes the entry. Always writes the whole
// file, with mode 0666, even if nothing changed. The first call of the daemon's life starts with an
// empty table, so that entries of an earlier run disappear. A failed write is silent; the next
// write makes up for it. Safe to call from any queue.
void updateStatusFile(const std::string& key, std::int32_t pid, std::int32_t nice_value,
                      std::int32_t jetsam_priority);

// Removes the target's entry and writes the file.
inline void removeStatusEntry(const std::string& key) {
  updateStatusFile(key, 0, 0, 0);
}

}  // namespace vorlatch
