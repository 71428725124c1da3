#include "control/target_names.h"

#include <algorithm>
#include <cstddef>

namespace vorlatch::control {
namespace {

constexpr std::size_t kReportedCharacters = 32;

bool beginsCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

}  // namespace

bool isReportedAs(std::string_view name, std::string_view reported) {
  if (name == reported) return true;
  const auto characters =
      static_cast<std::size_t>(std::count_if(reported.begin(), reported.end(), beginsCharacter));
  // The kernel counts bytes.
  const bool is_cut = characters == kReportedCharacters || reported.size() == kReportedCharacters;
  return is_cut && name.starts_with(reported);
}

const std::set<std::string>& TargetNames::namesOf(const std::string& key) {
  const auto [entry, is_new] = names_by_key_.try_emplace(key, std::set{key});
  std::set<std::string>& names = entry->second;
  if (!is_new) return names;
  for (const RunningProcess& process : observation_->processes) {
    if (isIdentifiedBy(process, key)) names.insert(process.name);
  }
  // Reading every app's Info.plist takes long, so it is left out where it cannot help.
  if (key.find('.') == key.npos) return names;
  if (!*apps_) *apps_ = installedApps();
  for (const InstalledApp& app : **apps_) {
    if (app.bundle_identifier == key && !app.process_name.empty()) names.insert(app.process_name);
  }
  return names;
}

bool TargetNames::isProcessOf(const std::string& key, std::string_view reported_name) {
  if (reported_name.empty()) return false;
  const std::set<std::string>& names = namesOf(key);
  return std::any_of(names.begin(), names.end(), [reported_name](const std::string& name) {
    return isReportedAs(name, reported_name);
  });
}

const std::string* TargetNames::targetOf(std::string_view reported_name) {
  for (const auto& [key, target] : observation_->targets) {
    if (isProcessOf(key, reported_name)) return &key;
  }
  return nullptr;
}

}  // namespace vorlatch::control
