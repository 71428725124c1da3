// The commands. Each gives its exit status, or throws a Failure.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli/failure.h"
#include "cli/session.h"

namespace vorlatch::cli {

struct StatusOptions {
  std::vector<std::string> targets;  // none: all
  bool watches = false;
  int interval_s = 2;
};
ExitStatus statusCommand(const Session& session, const StatusOptions& options);

ExitStatus listCommand(const Session& session);
ExitStatus showCommand(const Session& session, const std::string& target);
ExitStatus bandsCommand(const Session& session);

struct EditOptions {
  bool is_dry_run = false;
  bool applies = true;  // posts the notification after a change
};
ExitStatus setCommand(const Session& session, const EditOptions& options, const std::string& target,
                      const std::vector<std::string>& assignments);
ExitStatus unsetCommand(const Session& session, const EditOptions& options,
                        const std::string& target, const std::vector<std::string>& keys);
ExitStatus removeCommand(const Session& session, const EditOptions& options,
                         const std::vector<std::string>& removed);
ExitStatus switchCommand(const Session& session, const EditOptions& options, bool on);
struct PresetOptions {
  bool replaces_targets = false;  // also those that are configured already
  bool replaces_file = false;     // whatever stands in it, readable or not
};
ExitStatus presetCommand(const Session& session, const EditOptions& options,
                         const PresetOptions& preset);

ExitStatus applyCommand(const Session& session);

struct ReleaseOptions {
  bool keeps_preferences = false;
  std::chrono::seconds timeout{10};
};
ExitStatus releaseCommand(const Session& session, const ReleaseOptions& options);

ExitStatus planCommand(const Session& session);
ExitStatus matchCommand(const Session& session, const std::string& key);
ExitStatus psCommand(const Session& session);

struct CheckOptions {
  std::optional<std::string> file;  // nothing: the daemon's
  bool looks_at_processes = true;
};
ExitStatus checkCommand(const Session& session, const CheckOptions& options);

struct LogOptions {
  std::size_t lines = 0;  // 0: all
  bool follows = false;
  std::string target;
  std::string category;  // with or without its brackets
};
ExitStatus logCommand(const Session& session, const LogOptions& options);

ExitStatus doctorCommand(const Session& session);

}  // namespace vorlatch::cli
