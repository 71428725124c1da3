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
                         const control::Change& change);

// Prints what an edit changed. `posted`: whether the daemon was notified.
void reportEdit(const Session& session, const EditOptions& options, const control::Edit& edit,
                bool posted);

}  // namespace vorlatch::cli
