// Finds the target that a process in a report belongs to. A report knows only the process's name.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "control/installed_apps.h"
#include "control/observation.h"

namespace vorlatch::control {

// Empty until somebody asked for them.
using KnownApps = std::optional<std::vector<InstalledApp>>;

// Returns true if a report would call a process with this name so: at most 32 characters of it.
bool isReportedAs(std::string_view name, std::string_view reported);

class TargetNames {
 public:
  // Both must outlive this object.
  TargetNames(const Observation& observation, KnownApps& apps)
      : observation_(&observation), apps_(&apps) {}

  // Returns true if the key is the process's name, or the bundle identifier of a running process or
  // of an installed app of this name.
  bool isProcessOf(const std::string& key, std::string_view reported_name);
  // Returns the key of the first target that the process belongs to; null if there is none.
  const std::string* targetOf(std::string_view reported_name);

 private:
  const std::set<std::string>& namesOf(const std::string& key);

  const Observation* observation_;
  KnownApps* apps_;
  std::map<std::string, std::set<std::string>> names_by_key_;
};

}  // namespace vorlatch::control
