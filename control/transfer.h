// Moves preferences between the daemon's file and files of the user.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "control/check.h"
#include "control/preferences_edit.h"

namespace vorlatch::control {

// Returns the stored preferences as an XML property list. Throws a Failure if there are none, or if
// XML cannot hold all of them.
std::string preferencesAsXml();

// Throws a Failure if the path exists, unless it is a regular file and `replaces`.
void requireWritable(const std::string& path, bool replaces);

// Writes a file whole or not at all, with mode 0666. Throws a Failure as requireWritable does.
void writeUserFile(const std::string& path, std::string_view bytes, bool replaces);

// A file that preferences can be taken from.
struct UserFile {
  StoredPreferences preferences;
  std::vector<Finding> findings;  // those of checkFile, without the processes
};

// Throws a Failure if the daemon could not read the file, or if others may not.
UserFile readUserFile(const std::string& path);

}  // namespace vorlatch::control
