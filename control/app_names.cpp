#include "control/app_names.h"

#include "control/target_names.h"

namespace vorlatch::control {
namespace {

std::optional<std::string> nameOf(const InstalledApp& app) {
  std::string name = displayNameOf(app, language());
  return name.empty() ? std::nullopt : std::optional(std::move(name));
}

}  // namespace

void AppNames::lookUp() {
  if (has_looked_up_) return;
  has_looked_up_ = true;
  apps_ = installedApps();
  for (const InstalledApp& app : apps_) by_identifier_.emplace(app.bundle_identifier, &app);
}

std::optional<std::string> AppNames::ofBundle(const std::string& bundle_identifier) {
  lookUp();
  const auto app = by_identifier_.find(bundle_identifier);
  return app != by_identifier_.end() ? nameOf(*app->second) : std::nullopt;
}

std::optional<std::string> AppNames::ofProcess(const RunningProcess* process) {
  if (process == nullptr || !process->bundle_identifier) return std::nullopt;
  return ofBundle(*process->bundle_identifier);
}

std::optional<std::string> AppNames::ofTarget(const TargetView& target) {
  auto name = ofBundle(target.key);
  return name ? name : ofProcess(target.process);
}

std::optional<std::string> AppNames::ofReported(std::string_view process_name,
                                                const std::string& target) {
  if (auto name = ofBundle(target)) return name;
  const InstalledApp* found = nullptr;
  for (const InstalledApp& app : apps_) {
    if (app.process_name.empty() || !isReportedAs(app.process_name, process_name)) continue;
    if (found != nullptr) return std::nullopt;
    found = &app;
  }
  return found != nullptr ? nameOf(*found) : std::nullopt;
}

}  // namespace vorlatch::control
