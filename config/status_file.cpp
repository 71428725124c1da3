#include "config/status_file.h"

#include <map>
#include <optional>

#include "base/files.h"
#include "base/plist_value.h"
#include "base/thread_safety.h"
#include "config/property_list_file.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {
namespace {

struct StatusEntry {
  std::int32_t pid;
  std::int32_t nice_value;
  std::int32_t jetsam_priority;
};

struct Status {
  // Held until the file is written and has its mode, so that no older state replaces a newer one.
  Mutex mutex;
  std::map<std::string, StatusEntry> entries GUARDED_BY(mutex);
};

Status& status() {
  static Status& kept = *new Status;
  return kept;
}

plist::Dictionary statusDictionary(const std::map<std::string, StatusEntry>& entries) {
  plist::Dictionary dictionary;
  for (const auto& [key, entry] : entries) {
    dictionary.emplace_hint(
        dictionary.end(), key,
        plist::Dictionary{{status_keys::kPid, entry.pid},
                          {status_keys::kNiceValue, entry.nice_value},
                          {status_keys::kJetsamPriority, entry.jetsam_priority}});
  }
  return dictionary;
}

}  // namespace

void updateStatusFile(const std::string& key, std::int32_t pid, std::int32_t nice_value,
                      std::int32_t jetsam_priority) {
  Status& current = status();
  const Lock lock(current.mutex);
  if (pid != 0) {
    current.entries.insert_or_assign(key, StatusEntry{pid, nice_value, jetsam_priority});
  } else {
    current.entries.erase(key);
  }
  const std::optional<std::string> path = getPrefPath(kStatusFileName);
  if (!path) return;
  writePropertyList(*path, statusDictionary(current.entries));
  letEveryoneReadAndWrite(*path);
}

}  // namespace vorlatch
