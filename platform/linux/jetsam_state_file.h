// The model's jetsam state of this machine's processes, shared by all programs of one root as a
// kernel's would be: a small file, guarded by a lock file beside it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/thread_safety.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::platform {

// The bytes of a state file, and back. The boot identifier (at most 36 characters) dates the state:
// what another boot has written, and what is cut short or damaged, reads as nothing.
std::string encodeJetsamTable(const model::JetsamTable& table, std::string_view boot_id);
std::optional<model::JetsamTable> decodeJetsamTable(std::string_view bytes,
                                                    std::string_view boot_id);

// The state of one root. Safe to use from any thread, and from any number of processes at once.
class JetsamStateFile {
 public:
  // Touches nothing yet. The lock file is the path with ".lock" behind it, and a new state is
  // written under the path with ".new" behind it.
  explicit JetsamStateFile(std::string path) : path_(std::move(path)) {}

  // Runs `use` on the table while no other process has it, and keeps what it changed. Missing
  // directories are made. The table is empty when there is no file or none that can be understood.
  // Where the state cannot be kept - no place for the file, or a file of another user under its
  // name - a table in memory takes over and stays for the life of this object, so that the calls
  // of one process still agree with each other.
  void update(const model::ProcessList& processes,
              const std::function<void(model::JetsamTable&)>& use);

  // Runs `use` on the table as it is, without keeping any other process waiting or waiting for one:
  // a state is replaced whole.
  void look(const std::function<void(const model::JetsamTable&)>& use);

 private:
  // Nothing only when the name is taken by what is not ours; no file and no sense are an empty
  // table. Kept until the next call.
  const model::JetsamTable* load() REQUIRES(mutex_);

  Mutex mutex_;
  const std::string path_;
  std::optional<model::JetsamTable> in_memory_ GUARDED_BY(mutex_);
  // What was read last, by the file's header, whose checksum covers the rest.
  std::string read_header_ GUARDED_BY(mutex_);
  model::JetsamTable read_table_ GUARDED_BY(mutex_);
};

}  // namespace vorlatch::platform
