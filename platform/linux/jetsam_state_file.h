// The model's jetsam state of this machine's processes: a small file with a lock file beside it.
// All programs of one root share it, as they would share a kernel's state.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/thread_safety.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::platform {

// Convert a table to the bytes of a state file and back. The boot identifier (at most 36
// characters) dates the state: decoding returns std::nullopt for another boot's state and for
// truncated or damaged bytes.
std::string encodeJetsamTable(const model::JetsamTable& table, std::string_view boot_id);
std::optional<model::JetsamTable> decodeJetsamTable(std::string_view bytes,
                                                    std::string_view boot_id);

// The state of one root. Safe to use from any thread and from several processes at once.
class JetsamStateFile {
 public:
  // Does not access the file yet. `path`.lock is the lock file; `path`.new is a state being
  // written.
  explicit JetsamStateFile(std::string path) : path_(std::move(path)) {}

  // Runs `use` on the table under a lock that excludes other processes, and saves its changes.
  // Creates missing directories. The table is empty if the file is missing or invalid. If the state
  // cannot be saved (no place for the file, or another user's file under its name), this object
  // uses a table in memory from then on, so that the calls of one process still agree with each
  // other.
  void update(const model::ProcessList& processes,
              const std::function<void(model::JetsamTable&)>& use);

  // Runs `use` on the current table. Takes no file lock, so that it neither waits for another
  // process nor blocks one; that is safe because update() replaces the file as a whole.
  void look(const std::function<void(const model::JetsamTable&)>& use);

 private:
  // Returns null if the path holds a foreign file or one that cannot be opened. A missing or
  // invalid file is an empty table. The result is valid until the next call.
  const model::JetsamTable* load() REQUIRES(mutex_);

  Mutex mutex_;
  const std::string path_;
  std::optional<model::JetsamTable> in_memory_ GUARDED_BY(mutex_);
  // The last table read, and the header of its file, whose checksum covers the whole file.
  std::string read_header_ GUARDED_BY(mutex_);
  model::JetsamTable read_table_ GUARDED_BY(mutex_);
};

}  // namespace vorlatch::platform
