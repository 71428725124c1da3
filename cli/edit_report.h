// What the editing commands have in common.
#pragma once

#include "cli/command.h"
#include "control/edits.h"
#include "control/preferences_edit.h"

namespace vorlatch::cli {

struct EditOptions {
  bool is_dry_run = false;
  bool applies = true;  // posts the notification after a change
};

// Adds the two options to what a command takes.
void addEditOptions(Arguments& arguments, EditOptions& options);

// Changes the preferences, tells the daemon when something changed, and shows the difference.
ExitStatus editAndReport(const Session& session, const EditOptions& options,
                         const control::Change& change);

// Shows what an edit changed; `posted` says whether the daemon was told.
void reportEdit(const Session& session, const EditOptions& options, const control::Edit& edit,
                bool posted);

}  // namespace vorlatch::cli
