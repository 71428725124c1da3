#include "control/installed_apps.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "base/files.h"
#include "config/property_list_file.h"
#include "platform/system_paths.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kMostApps = 2000;
constexpr std::size_t kMostEntries = 4000;  // of a folder
constexpr std::size_t kMostNameBytes = 1024;
constexpr const char* kDisplayName = "CFBundleDisplayName";

// Translations are in folders such as zh-Hans.lproj.
constexpr std::array<const char*, 5> kChineseFolders = {"zh-Hans", "zh_CN", "zh-Hant", "zh_TW",
                                                        "zh_HK"};
constexpr std::array<const char*, 1> kEnglishFolders = {"en"};

std::string textIn(const plist::Dictionary& dictionary, const char* key) {
  const plist::Value* value = plist::find(dictionary, key);
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  // A longer one is nobody's name, and is kept in memory.
  return text != nullptr && text->size() <= kMostNameBytes ? *text : std::string();
}

std::string infoFileOf(const std::string& bundle) {
  return bundle + "/Info.plist";
}

// Returns nothing for an app without an identifier.
std::optional<InstalledApp> readApp(const std::string& bundle) {
  const plist::Dictionary info = readDictionary(infoFileOf(bundle));
  InstalledApp app{.bundle_identifier = textIn(info, "CFBundleIdentifier"),
                   .process_name = textIn(info, "CFBundleExecutable"),
                   .bundle = bundle};
  if (app.bundle_identifier.empty()) return std::nullopt;
  return app;
}

// Returns the name for all languages without a translation.
std::string untranslatedNameOf(const InstalledApp& app) {
  const plist::Dictionary info = readDictionary(infoFileOf(app.bundle));
  const std::string name = textIn(info, kDisplayName);
  return name.empty() ? textIn(info, "CFBundleName") : name;
}

std::string translatedNameOf(const InstalledApp& app, const char* folder) {
  const std::string strings = app.bundle + "/" + folder + ".lproj/InfoPlist.strings";
  return textIn(readDictionary(strings, kDisplayName), kDisplayName);
}

std::string readDisplayName(const InstalledApp& app, std::span<const char* const> folders) {
  for (const char* folder : folders) {
    std::string name = translatedNameOf(app, folder);
    if (!name.empty()) return name;
  }
  return untranslatedNameOf(app);
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

std::vector<InstalledApp> readApps() {
  std::vector<std::string> bundles;
  for (const std::string& folder : platform::applicationDirectories()) {
    addBundlesIn(folder, true, bundles);
  }
  std::sort(bundles.begin(), bundles.end());
  std::vector<InstalledApp> apps;
  for (const std::string& bundle : bundles) {
    if (apps.size() == kMostApps) break;
    if (auto app = readApp(bundle)) apps.push_back(std::move(*app));
  }
  return apps;
}

// When each of the folders was last written: an app that is installed, replaced or removed changes
// its folder. Zero for a missing one.
using Versions = std::vector<std::pair<ino_t, std::time_t>>;

// Returns nothing if a folder was written just now, because it may be written again in the same
// second.
std::optional<Versions> settledVersions() {
  constexpr std::time_t kSettlingSeconds = 3;
  const std::time_t newest = std::time(nullptr) - kSettlingSeconds;
  Versions versions;
  for (const std::string& folder : platform::applicationDirectories()) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) == 0 && status.st_mtime > newest) return std::nullopt;
    versions.emplace_back(status.st_ino, status.st_mtime);
  }
  return versions;
}

// What was read last, for a program that asks again and again. For one thread.
struct Kept {
  std::optional<Versions> versions;
  std::vector<InstalledApp> apps;
  std::map<std::pair<std::string, Language>, std::string> names;  // by bundle
};

Kept& kept() {
  static Kept& all = *new Kept;
  return all;
}

}  // namespace

std::vector<InstalledApp> installedApps() {
  Kept& known = kept();
  std::optional<Versions> versions = settledVersions();
  if (!versions || versions != known.versions) {
    known = {.versions = std::move(versions), .apps = readApps(), .names = {}};
  }
  return known.apps;
}

std::vector<std::string> displayNamesOf(const InstalledApp& app) {
  std::vector<std::string> names;
  const auto add = [&names](const std::string& name) {
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
  };
  add(untranslatedNameOf(app));
  for (const char* folder : kChineseFolders) add(translatedNameOf(app, folder));
  for (const char* folder : kEnglishFolders) add(translatedNameOf(app, folder));
  return names;
}

std::string displayNameOf(const InstalledApp& app, Language language) {
  const auto [name, is_new] = kept().names.try_emplace({app.bundle, language});
  if (is_new) {
    name->second = language == Language::Chinese ? readDisplayName(app, kChineseFolders)
                                                 : readDisplayName(app, kEnglishFolders);
  }
  return name->second;
}

}  // namespace vorlatch::control
