// Every problem in a preferences file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/property_list_guard.h"

namespace vorlatch::control {

struct Finding {
  std::vector<std::string> path;  // keys from the root; empty: the file itself
  std::string kind;
  std::string message;
};

struct CheckedFile {
  std::string path;
  std::vector<Finding> findings;
  std::optional<PropertyListSize> size;  // empty where the file could not be read
};

// Checks a file, or the daemon's own without one. Asks whether each target matches a running
// process only if `looks_at_processes`. A Failure when there is no such file or it may not be read.
CheckedFile checkFile(const std::optional<std::string>& file, bool looks_at_processes);

}  // namespace vorlatch::control
