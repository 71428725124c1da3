// Functions that the editing commands share.
#pragma once

#include "cli/command.h"
#include "control/edits.h"
#include "control/preferences_edit.h"

namespace vorlatch::cli {

struct EditOptions {
  bool is_dry_run = false;
  bool applies = true;  // posts the notification after a change
};

// Adds --dry-run and --no-apply to a command's arguments.
void addEditOptions(Arguments& arguments, EditOptions& options);

// Changes the preferences, notifies the daemon if something changed, and prints the difference.
ExitStatus editAndReport(const Session& session, const EditOptions& options,
                         const control::Change& change,
                         control::Previous previous = control::Previous::Kept);

// Does the rest for an edit that was made already. `more` has further members for its JSON.
ExitStatus applyAndReport(const Session& session, const EditOptions& options,
                          const control::Edit& edit, const Json& more = Json::object());

// Returns the keys from the root: "AppConfigs / kbd".
std::string pathText(const std::vector<std::string>& path);

// Return a difference as text and as JSON.
std::string textOf(const control::Difference& difference);
Json jsonOf(const control::Difference& difference);

}  // namespace vorlatch::cli
