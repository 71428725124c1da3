// What the home screen calls apps, for processes and targets.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "control/installed_apps.h"
#include "control/target_view.h"

namespace vorlatch::control {

// Looks the installed apps up when the first name is asked for. Names are in the language of texts,
// and empty for what is no installed app or has no name.
class AppNames {
 public:
  AppNames() = default;
  AppNames(const AppNames&) = delete;
  AppNames& operator=(const AppNames&) = delete;
  ~AppNames() = default;

  std::optional<std::string> ofBundle(const std::string& bundle_identifier);
  std::optional<std::string> ofProcess(const RunningProcess* process);
  // Returns the name of the app that is the target, or to which the target's process belongs.
  std::optional<std::string> ofTarget(const TargetView& target);
  // Returns the name for a process in a report: of its target, if that is an app; otherwise of the
  // only app whose process a report would call so.
  std::optional<std::string> ofReported(std::string_view process_name, const std::string& target);

 private:
  void lookUp();

  bool has_looked_up_ = false;
  std::vector<InstalledApp> apps_;
  std::unordered_map<std::string_view, const InstalledApp*> by_identifier_;
};

}  // namespace vorlatch::control
