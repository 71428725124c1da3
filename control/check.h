// Finds every problem in a preferences file.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "config/property_list_guard.h"

namespace vorlatch::control {

struct Finding {
  std::vector<std::string> path;  // keys from the root; empty: the file itself
  std::string code;
  std::string message;
};

nlohmann::ordered_json findingsJson(const std::vector<Finding>& findings);

struct CheckedFile {
  std::string path;
  std::vector<Finding> findings;
  std::optional<PropertyListSize> size;  // empty if the file could not be read
};

// Checks `file` or, if empty, the daemon's preferences. Looks for the targets' processes only if
// `looks_at_processes`. Throws a Failure if the named file is missing or a file may not be read.
CheckedFile checkFile(const std::optional<std::string>& file, bool looks_at_processes);

}  // namespace vorlatch::control
