#include "control/installed_apps.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "config/property_list_file.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostApps = 2000;
constexpr const char* kDisplayName = "CFBundleDisplayName";

std::string textIn(const plist::Dictionary& dictionary, const char* key) {
  const plist::Value* value = plist::find(dictionary, key);
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? *text : std::string();
}

// Calls `visit` with each entry of a folder; with none if it cannot be read.
template <typename Visit>
void forEachIn(const fs::path& folder, const Visit& visit) {
  std::error_code unreadable;
  for (fs::directory_iterator entry(folder, unreadable), end; !unreadable && entry != end;
       entry.increment(unreadable)) {
    visit(entry->path());
  }
}

void addDisplayName(InstalledApp& app, const plist::Dictionary& names) {
  const std::string name = textIn(names, kDisplayName);
  const auto& known = app.display_names;
  if (!name.empty() && std::find(known.begin(), known.end(), name) == known.end()) {
    app.display_names.push_back(name);
  }
}

void addApp(const fs::path& bundle, std::vector<InstalledApp>& apps) {
  if (apps.size() == kMostApps) return;
  const plist::Dictionary info = readDictionary((bundle / "Info.plist").string());
  InstalledApp app{.bundle_identifier = textIn(info, "CFBundleIdentifier"),
                   .process_name = textIn(info, "CFBundleExecutable"),
                   .display_names = {}};
  if (app.bundle_identifier.empty()) return;
  addDisplayName(app, info);
  if (app.display_names.empty()) app.display_names.push_back(textIn(info, "CFBundleName"));
  // Translations are in folders such as zh-Hans.lproj.
  for (const char* language : {"zh-Hans", "zh_CN", "zh-Hant", "zh_TW", "zh_HK", "en"}) {
    const fs::path names = bundle / (std::string(language) + ".lproj") / "InfoPlist.strings";
    addDisplayName(app, readDictionary(names.string(), kDisplayName));
  }
  apps.push_back(std::move(app));
}

}  // namespace

std::vector<InstalledApp> installedApps() {
  std::vector<InstalledApp> apps;
  const auto add_if_app = [&apps](const fs::path& path) {
    if (path.extension() != ".app") return false;
    addApp(path, apps);
    return true;
  };
  for (const std::string& folder : platform::applicationDirectories()) {
    forEachIn(folder, [&](const fs::path& path) {
      if (!add_if_app(path)) forEachIn(path, add_if_app);
    });
  }
  return apps;
}

}  // namespace vorlatch::control
