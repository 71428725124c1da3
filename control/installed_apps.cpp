#include "control/installed_apps.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "base/files.h"
#include "config/property_list_file.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kMostApps = 2000;
constexpr std::size_t kMostEntries = 4000;  // of a folder
constexpr const char* kDisplayName = "CFBundleDisplayName";

std::string textIn(const plist::Dictionary& dictionary, const char* key) {
  const plist::Value* value = plist::find(dictionary, key);
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? *text : std::string();
}

plist::Dictionary infoOf(const std::string& bundle) {
  return readDictionary(bundle + "/Info.plist");
}

// Adds the bundles in the folder; and with `looks_inside`, those in its subfolders.
void addBundlesIn(const std::string& folder, bool looks_inside, std::vector<std::string>& bundles) {
  for (const std::string& name :
       namesIn(folder, kMostEntries).value_or(std::vector<std::string>())) {
    const std::string path = folder + "/" + name;
    if (name.ends_with(".app")) {
      bundles.push_back(path);
    } else if (looks_inside) {
      addBundlesIn(path, false, bundles);
    }
  }
}

}  // namespace

std::vector<InstalledApp> installedApps() {
  std::vector<std::string> bundles;
  for (const std::string& folder : platform::applicationDirectories()) {
    addBundlesIn(folder, true, bundles);
  }
  std::sort(bundles.begin(), bundles.end());
  std::vector<InstalledApp> apps;
  for (const std::string& bundle : bundles) {
    if (apps.size() == kMostApps) break;
    const plist::Dictionary info = infoOf(bundle);
    InstalledApp app{.bundle_identifier = textIn(info, "CFBundleIdentifier"),
                     .process_name = textIn(info, "CFBundleExecutable"),
                     .bundle = bundle};
    if (!app.bundle_identifier.empty()) apps.push_back(std::move(app));
  }
  return apps;
}

std::vector<std::string> displayNamesOf(const InstalledApp& app) {
  std::vector<std::string> names;
  const auto add = [&names](const std::string& name) {
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
  };
  const plist::Dictionary info = infoOf(app.bundle);
  const std::string name = textIn(info, kDisplayName);
  add(name.empty() ? textIn(info, "CFBundleName") : name);
  // Translations are in folders such as zh-Hans.lproj.
  for (const char* language : {"zh-Hans", "zh_CN", "zh-Hant", "zh_TW", "zh_HK", "en"}) {
    const std::string strings = app.bundle + "/" + language + ".lproj/InfoPlist.strings";
    add(textIn(readDictionary(strings, kDisplayName), kDisplayName));
  }
  return names;
}

}  // namespace vorlatch::control
