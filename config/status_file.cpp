#include "config/status_file.h"

#include <optional>

#include "config/files.h"
#include "config/property_list_file.h"
#include "platform/plist_value.h"
#include "platform/thread_safety.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {
namespace {

struct Status {
  // Held from the change to the mode, so that the file never falls behind a later change.
  Mutex mutex;
  plist::Dictionary entries GUARDED_BY(mutex);
};

Status& status() {
  static Status& kept = *new Status;
  return kept;
}

}  // namespace

void updateStatusFile(const std::string& key, std::int32_t pid, std::int32_t nice_value,
                      std::int32_t jetsam_priority) {
  Status& current = status();
  const Lock lock(current.mutex);
  if (pid != 0) {
    current.entries.insert_or_assign(
        key, plist::Dictionary{{status_keys::kPid, pid},
                               {status_keys::kNiceValue, nice_value},
                               {status_keys::kJetsamPriority, jetsam_priority}});
  } else {
    current.entries.erase(key);
  }
  const std::optional<std::string> path = getPrefPath(kStatusFileName);
  if (!path) return;
  writePropertyList(*path, current.entries);
  letEveryoneReadAndWrite(*path);
}

}  // namespace vorlatch
