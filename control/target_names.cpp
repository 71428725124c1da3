#include "control/target_names.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

#include "base/files.h"
#include "config/property_list_file.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kReportedCharacters = 32;
constexpr std::size_t kMostEntries = 4000;  // of a folder
constexpr const char* kIdentifierKey = "CFBundleIdentifier";
constexpr const char* kExecutableKey = "CFBundleExecutable";

bool beginsCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

std::optional<std::string> textInInfo(const std::string& bundle, const char* key) {
  const plist::Dictionary info = readDictionary(bundle + "/Info.plist", key);
  const plist::Value* value = plist::find(info, key);
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

// Returns the bundles in the folder; and with `looks_inside`, those in its subfolders.
std::vector<std::string> bundlesIn(const std::string& folder, bool looks_inside) {
  std::vector<std::string> bundles;
  for (const std::string& name :
       namesIn(folder, kMostEntries).value_or(std::vector<std::string>())) {
    const std::string path = folder + "/" + name;
    if (name.ends_with(".app")) {
      bundles.push_back(path);
    } else if (looks_inside) {
      for (const std::string& inner : bundlesIn(path, false)) bundles.push_back(inner);
    }
  }
  return bundles;
}

}  // namespace

void InstalledApps::look() {
  has_looked_ = true;
  for (const std::string& folder : platform::applicationDirectories()) {
    for (const std::string& bundle : bundlesIn(folder, true)) {
      if (const auto identifier = textInInfo(bundle, kIdentifierKey)) {
        bundles_.emplace(*identifier, bundle);
      }
    }
  }
}

std::string InstalledApps::executableOf(const std::string& bundle_identifier) {
  if (!has_looked_) look();
  const auto bundle = bundles_.find(bundle_identifier);
  if (bundle == bundles_.end()) return "";
  return textInInfo(bundle->second, kExecutableKey).value_or("");
}

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
  const bool may_be_app = key.find('.') != key.npos;
  const std::string executable = may_be_app ? apps_->executableOf(key) : "";
  if (!executable.empty()) names.insert(executable);
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
